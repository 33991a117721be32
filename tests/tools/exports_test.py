"""What calcut export writes, read by the tools that it is for: exports_test.py CALCUT"""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

import cv2
import numpy
import yaml

CALCUT = sys.argv.pop(1)
MODULES = {
    "v7.bin": "--size 40x30 --frequencies 2 --custom 3",
    "korveline.bin": "--layout korveline --size 33x21 --frequencies 1 --custom 0 --no-straylight",
    "bare.spc": "--bare --size 9x5 --frequencies 8 --custom 5 --table-bits 0 --seed 7",
}
LENS = ("fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3")


class Exports(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        for name, words in MODULES.items():
            self.run_calcut("make", *words.split(), "-q", "-o", name)

    def run_calcut(self, *words, status=0):
        done = subprocess.run([CALCUT, *words], cwd=self.folder, capture_output=True, text=True)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout + done.stderr

    def export(self, module, form):
        """The folder of an export, and what inspect says about the module."""
        self.run_calcut("export", module, module + "." + form, "--as", form)
        tree = json.loads(self.run_calcut("inspect", "--json", module))
        return self.folder / (module + "." + form), tree["record"]

    def test_arrays(self):
        for module in MODULES:
            folder, record = self.export(module, "npy")
            arrays = {path.stem: numpy.load(path) for path in folder.iterdir()}
            rows, columns = record["rows"], record["columns"]
            names = ["mask", "pixel_values", "rays"]
            names += [f"frequency_{f['index']}_pixel_table" for f in record["frequencies"]]
            names += [f"custom_{c['id']}" for c in record["custom"]]
            names += ["psf"] if record["straylight"] else []
            lists = self.lists_of(record)
            self.assertEqual(sorted(arrays), sorted(names + list(lists)))
            for name, values in lists.items():
                array = arrays.pop(name)
                self.assertEqual(array.dtype, numpy.uint32 if name.endswith("second") else numpy.float32)
                numpy.testing.assert_array_equal(array, numpy.array(values, array.dtype), name)
            packed = numpy.load(self.export(module, "npz")[0] / "module.npz")
            self.assertEqual(sorted(packed), sorted(names + list(lists)))
            for name, array in arrays.items():
                numpy.testing.assert_array_equal(packed[name], array)
            self.assertEqual(numpy.count_nonzero(arrays["mask"] == 0), record["maskedPixels"])
            for field in record["custom"]:
                self.assertEqual(arrays[f"custom_{field['id']}"].tobytes().hex(), field["hex"])
            for name, array in arrays.items():
                byte = name == "mask" or name.startswith("custom")
                self.assertEqual(array.dtype, numpy.uint8 if byte else numpy.float32, name)
                light = record["straylight"] or {"psfHeight": 0, "psfWidth": 0}
                shapes = {"psf": (light["psfHeight"], light["psfWidth"]), "rays": (rows, columns, 3)}
                shape = array.shape if name.startswith("custom") else shapes.get(name, (rows, columns))
                self.assertEqual((array.shape, array.ndim == 1), (shape, name.startswith("custom")))
            # Blocks as inspect decodes them.
            blocks = json.loads(self.run_calcut("inspect", "--json", module))["calibration"]["blocks"]
            for block in blocks:
                name = {3: "pixel_values", 17: "frequency_0_pixel_table"}.get(block["id"])
                if name:
                    self.assertEqual(arrays[name].min(), numpy.float32(block["range"]["min"]))
                    self.assertEqual(arrays[name].max(), numpy.float32(block["range"]["max"]))
            self.check_texts(module, arrays)

    def lists_of(self, record):
        """What is no table and no bytes, as inspect tells it."""
        lists = {}
        for frequency in record["frequencies"]:
            start = f"frequency_{frequency['index']}_"
            lists |= {start + "values_a": frequency["valuesA"], start + "values_b": frequency["valuesB"],
                      start + "scalar": [frequency["scalar"]]}
            lists = {name: values for name, values in lists.items() if values not in (None, [None])}
            for letter in "AB":
                for part in ("first", "second", "third"):
                    lists[f"{start}wiggling_{letter.lower()}_{part}"] = frequency["wiggling" + letter][part]
        return lists

    def check_texts(self, module, arrays):
        """CSV gives the same bits, PGM the values that its comment promises."""
        csv, record = self.export(module, "csv")
        pgm, _ = self.export(module, "pgm")
        planes = {name: array for name, array in arrays.items() if name != "rays"}
        planes |= {f"rays_{c}": arrays["rays"][:, :, i] for i, c in enumerate("xyz")}
        lists = self.lists_of(record)
        self.assertEqual(sorted(p.stem for p in csv.iterdir()), sorted([*planes, *lists]))
        for name, values in lists.items():
            self.assertEqual((csv / f"{name}.csv").read_text().count(","), len(values) - 1)
        self.assertEqual(sorted(p.stem for p in pgm.iterdir()), sorted(planes))
        for name, plane in planes.items():
            plane = numpy.atleast_2d(plane)
            text = numpy.loadtxt(csv / f"{name}.csv", delimiter=",", ndmin=2, dtype=numpy.float32)
            numpy.testing.assert_array_equal(text, plane, name)
            picture = cv2.imread(str(pgm / f"{name}.pgm"), cv2.IMREAD_UNCHANGED)
            self.assertEqual(picture.dtype, numpy.uint16)
            comment = (pgm / f"{name}.pgm").read_bytes().split(b"\n")[1].decode()
            low, step = comment.split(" = ")[1].removesuffix(" * sample").split(" + ")
            self.assertEqual("log10" in comment, name == "psf")
            shown = numpy.log10(plane) if name == "psf" else plane
            numpy.testing.assert_allclose(float(low) + float(step) * picture, shown,
                                          atol=0.51 * float(step) + 1e-12, err_msg=name)

    def test_lens(self):
        for module in MODULES:
            folder, record = self.export(module, "opencv-yaml")
            lens = {name: numpy.float32(record["lens"][name]) for name in LENS}
            file = cv2.FileStorage(str(folder / "opencv_camera.yaml"), cv2.FILE_STORAGE_READ)
            matrix = file.getNode("camera_matrix").mat()
            distortion = file.getNode("distortion_coefficients").mat()
            size = [file.getNode(f"image_{side}").real() for side in ("width", "height")]
            file.release()
            self.assertEqual(size, [record["columns"], record["rows"]])
            wanted = [[lens["fx"], 0, lens["cx"]], [0, lens["fy"], lens["cy"]], [0, 0, 1]]
            numpy.testing.assert_array_equal(matrix.astype(numpy.float32), wanted)
            self.assertEqual(distortion.astype(numpy.float32).tolist(),
                             [[lens[k] for k in ("k1", "k2", "p1", "p2", "k3")]])
            self.check_model(module, matrix, distortion)
            folder, _ = self.export(module, "ros-yaml")
            ros = yaml.safe_load((folder / "camera_info.yaml").read_text())
            self.assertEqual([ros["image_width"], ros["image_height"]], size)
            self.assertEqual(ros["distortion_model"], "plumb_bob")
            for name, array in (("camera_matrix", matrix), ("distortion_coefficients", distortion),
                                ("rectification_matrix", numpy.eye(3)),
                                ("projection_matrix", numpy.hstack([matrix, [[0]] * 3]))):
                self.assertEqual((ros[name]["rows"], ros[name]["cols"]), array.shape)
                self.assertEqual(ros[name]["data"], array.ravel().tolist(), name)
            folder, _ = self.export(module, "json")
            self.assertEqual(json.loads((folder / "lens.json").read_text())["lens"], record["lens"])

    def check_model(self, module, matrix, distortion):
        """OpenCV sends the points of the rays to the centres of their pixels."""
        folder, _ = self.export(module, "npy")
        rays = numpy.load(folder / "rays.npy").astype(float)
        rows, columns, _ = rays.shape
        pixels, _ = cv2.projectPoints(rays.reshape(-1, 1, 3), numpy.zeros(3), numpy.zeros(3),
                                      matrix, distortion)
        v, u = numpy.mgrid[:rows, :columns]
        off = numpy.hypot(pixels[:, 0, 0] - u.ravel(), pixels[:, 0, 1] - v.ravel())
        self.assertLess(numpy.median(off), 0.01)
        self.assertLess(off.max(), 0.5)

    def test_nothing_is_lost(self):
        self.export("v7.bin", "npy")
        folder = self.folder / "v7.bin.npy"
        (folder / "psf.npy").write_text("mine")
        before = sorted(folder.iterdir())
        words = ("export", "v7.bin", str(folder), "--as", "npy")
        self.assertIn("--force", self.run_calcut(*words, status=1))
        self.assertEqual((folder / "psf.npy").read_text(), "mine")
        self.run_calcut(*words, "--force")
        self.assertEqual(numpy.load(folder / "psf.npy").ndim, 2)
        self.assertEqual(sorted(folder.iterdir()), before)
        # Many dumps: one that does not read stops nothing; no two share a folder.
        (self.folder / "other").mkdir()
        (self.folder / "other" / "v7.bin").write_bytes((self.folder / "v7.bin").read_bytes())
        (self.folder / "bad.bin").write_bytes(b"nothing")
        (self.folder / "...").write_bytes((self.folder / "v7.bin").read_bytes())
        said = self.run_calcut("export", "...", "bad.bin", "v7.bin", "other", "bare.spc", "--out", "many",
                               "--as", "json", status=1)
        self.assertIn("same name as v7.bin", said)
        self.assertEqual(sorted(path.name for path in (self.folder / "many").iterdir()), ["_", "bare", "v7"])
        # A dump under the name of an export, and directories that cannot be had.
        dump = (self.folder / "v7.bin").read_bytes()
        (folder / "mask.npy").write_bytes(dump)
        for words, status in (
                (("export", str(folder / "mask.npy"), str(folder), "--as", "npy", "--force"), 1),
                (("export", "v7.bin", "no/where", "--as", "csv"), 1),
                (("export", "v7.bin", "bare.spc", "--as", "csv"), 1),
                (("export", "missing", "new", "--as", "csv"), 1),
                (("export", "v7.bin", "new", "--as", "tiff"), 2),
                (("export", "v7.bin", "new"), 2)):
            self.assertEqual(self.run_calcut(*words, status=status).count("\n"), 1)
        self.assertEqual((folder / "mask.npy").read_bytes(), dump)
        self.assertFalse((self.folder / "new").exists())


if __name__ == "__main__":
    unittest.main()
