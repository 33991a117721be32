# fish completion of calcut. Subcommands, options and their words come from its own help.
function __calcut_help
    calcut (commandline -opc)[2] --help 2>/dev/null
end
complete -c calcut -n __fish_use_subcommand -f -a '(calcut --help | string replace -rf "^  ([a-z]+) {2,}(.+)" "\$1\t\$2")'
complete -c calcut -n 'not __fish_use_subcommand; and string match -q -- "-*" (commandline -ct)' -f -a '(__calcut_help | string match -rag -- "^ +(?:(-\w),)?(--[a-z-]+)" | string match "-*")'
complete -c calcut -n 'set -l last (commandline -opc)[-1]; string match -q -- "--*" $last; and __calcut_help | string match -rq -- "$last [A-Z]+:\{"' -f -a '(set -l last (commandline -opc)[-1]; __calcut_help | string match -rg -- "$last [A-Z]+:\{([a-z0-9,-]+)\}" | string split ,)'
