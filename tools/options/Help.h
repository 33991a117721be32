// The texts of the command line, beside the words of the options. Man pages (help2man) and shell
// completion are made of what --help prints.
#pragma once

#include <memory>

namespace CLI {
class FormatterBase;
}

namespace calcut::options {

/// usage: forms of the command line, one a line, without "calcut" and the name.
struct Help {
    const char *name, *summary, *usage, *footer;
};

/// Prints help of at most 100 columns, with the usage of that text.
std::shared_ptr<CLI::FormatterBase> formatterFor(const Help& help);

inline constexpr Help commandHelp = {
    "calcut", "Cuts EEPROM dumps of depth camera modules, and shows what is in them.",
    "[OPTIONS] SUBCOMMAND",
    R"(Exit status: 0 everything was done, 1 a file was refused or could not be written,
2 the command line is wrong (compare: 1 different, 2 not compared); an interrupted command
ends by its signal (130, 143).
Inputs are never written to. For details, run calcut help SUBCOMMAND.

Examples:
  calcut make -o module.bin                      make a v7 dump to try things with
  calcut make --layout korveline --signature 64 -o signed.bin
  calcut cut module.bin out                      cut a dump into the existing folder out
  calcut cut line/*.bin --out cut --report cut.csv
  calcut inspect module.bin                      what is in a dump, or why it cannot be cut
  calcut plot module.bin -o module.png           its calibration as one sheet
  calcut compare golden.bin module.bin           how two modules differ
  calcut export module.bin tables --as npy       its tables for NumPy)"};

inline constexpr Help cutHelp = {
    "cut", "Cut dumps into the files of the camera stack",
    "[OPTIONS] DUMP OUTDIR\n"
    "[OPTIONS] DUMP... --out DIR\n"
    "[OPTIONS] --verify OUTDIR DUMP\n"
    "[OPTIONS] --verify --out DIR DUMP...",
    R"(The first form cuts one dump into an existing directory, the second each dump into a
directory of its own under DIR; the others compare what is there with the cuts.

Writes qov.spc (the packed calibration), lensdata.dat (the lens parameters) and, for a
Korveline dump with a signature area, signature.bin. They are written aside, read back and
then moved into place: a cut that fails or is interrupted leaves the earlier files whole.

In the second form, each directory is named after its dump, without the extension; if two
dumps have the same name, their folders' names are put in front. Its cut.json records which
dump it belongs to. Without --force, only a new cut of that dump replaces it. A bad dump
does not stop the others. The report is written while the batch runs.

Exit status: 0 all were cut, 1 one was not (--verify: a file differs), 2 usage.

Examples:
  calcut cut module.bin out
  calcut cut line/*.bin --out cut -j 4 --report cut.csv
  calcut cut line --glob '*.eeprom' --out cut --resume
  calcut cut line --out cut --name '{serial}'
  calcut cut --verify out module.bin)"};

inline constexpr Help inspectHelp = {
    "inspect", "Show what dumps and packed calibrations hold, and why they do not read",
    "[OPTIONS] FILE...",
    R"(Exit status: 0 everything reads and is intact, 1 it is not, 2 usage.

Examples:
  calcut inspect module.bin
  calcut inspect module.bin --json | jq .record.lens
  calcut inspect line --jsonl | jq -r 'select(.intact | not) | .file')"};

inline constexpr Help plotHelp = {
    "plot", "Draw calibrations, each on one sheet", "[OPTIONS] FILE... -o PICTURE",
    R"(The sheet has the mask, ray directions, every table, what a smooth fit leaves of the pixel
tables, the small tables of each frequency, and the straylight model. Several dumps become
pages of one PDF, or files of their own with {stem} in the name. Drawing needs Python with
matplotlib; CALCUT_PYTHON names another interpreter.

Exit status: 0 the sheets were written, 1 one was not, 2 usage.

Examples:
  calcut plot module.bin -o sheet.png
  calcut plot line/*.bin -o sheets.pdf
  calcut plot line/*.bin -o 'sheets/{stem}.png')"};

inline constexpr Help compareHelp = {
    "compare", "Show how modules differ", "[OPTIONS] A B | --to A B...",
    R"(Differences are B - A. NaN equals NaN. Tables of sensors of different sizes are reported as
different and not compared further. Only the calibration is compared, not the image around
it: a dump equals the packed calibration that was cut from it.

Values are equal when |B - A| is at most --tolerance + --rtol x |A|. Both are given for
everything (1e-4), for one table (psf=1e-7), for lens=, or for values=, which is the rest.
Without either, the blocks must be stored alike, too: the same kinds, bits and bytes.

Exit status: 0 equal, 1 different, 2 a file is not readable, or usage.

Examples:
  calcut compare golden.bin module.bin
  calcut compare golden.bin module.bin -q && echo equal
  calcut compare golden.bin module.bin --tolerance 1e-4 -o differences.png
  calcut compare golden.bin module.bin --rtol 1e-3 --tolerance psf=1e-7
  calcut compare --to golden.bin line --report compare.csv
  calcut compare golden.bin module.bin --json | jq '.tables[] | select(.differs)')"};

inline constexpr Help exportHelp = {
    "export", "Write a module's tables or lens for other tools",
    "[OPTIONS] DUMP DIR --as FORMAT\n"
    "[OPTIONS] DUMP... --out DIR --as FORMAT",
    R"(DIR is made when it is not there. Many dumps go into directories of their own under DIR, named
after them without the extension. A dump with a fault is refused, unless --damaged is given.

The tables are mask, pixel_values, frequency_N_pixel_table, rays and psf; lists of numbers are
frequency_N_values_a, _values_b, _scalar, _wiggling_a_first, ...; bytes are custom_ID.

Exit status: 0 all files were written, 1 one was not, 2 usage.

Examples:
  calcut export module.bin tables --as npy
  calcut export module.bin . --as opencv-yaml --force
  calcut export line --out arrays --as npz)"};

inline constexpr Help makeHelp = {"make", "Make a dump with a plausible calibration",
                                  "[OPTIONS] -o FILE",
                                  R"(The same options give the same bytes on every machine.
Exit status: 0 the file was written, 1 it was not, 2 usage.

Examples:
  calcut make -o module.bin
  calcut make --size 320x240 --frequencies 8 --seed 7 -o large.bin
  calcut make --layout korveline --signature 64 -o signed.bin
  calcut make --bare -o - | calcut inspect -)"};

}  // namespace calcut::options
