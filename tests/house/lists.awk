# Finds lists of sources in CMake files that are not sorted, and sources that
# stand in none.
#
# Usage: awk -f lists.awk FILE...
#
# The files are all of the project's, named from its root: CMake files are read,
# of the others the names count. A list is a run of lines that name one file each,
# in the order of their bytes. A source belongs to the list of its folder or of
# one above it, or is taken from another folder with its path from the root.

function complain(text) {
    print text
    bad = 1
}

function inFolder(file, name) {
    return index(file, "/") == 0 ? name : substr(file, 1, length(file) - length("CMakeLists.txt")) name
}

# CMake's own files may be read in any order, so names are kept until the end.
BEGIN {
    for (i = 1; i < ARGC; ++i) {
        if (ARGV[i] ~ /\.cpp$/)
            sources[ARGV[i]] = 1
        if (ARGV[i] !~ /(^|\/)CMakeLists\.txt$/)
            ARGV[i] = ""
        else
            ++read
    }
    if (!read) {
        complain("lists.awk: no CMake files")
        exit
    }
}

FNR == 1 { last = "" }

{
    line = $0
    sub(/#.*/, "", line)
    count = split(line, words, /[ \t()"]+/)
    for (i = 1; i <= count; ++i)
        if (words[i] ~ /\.cpp$/) {
            name = words[i]
            if (sub(/^\$\{PROJECT_SOURCE_DIR\}\//, "", name))
                listed[name] = 1
            else
                listed[inFolder(FILENAME, name)] = 1
        }
    if (line !~ /^[ \t]+[A-Za-z0-9_.\/-]+\.(cpp|h)[ \t]*$/) {
        last = ""
        next
    }
    name = line
    gsub(/[ \t]/, "", name)
    if (last != "" && name "" < last "")
        complain(FILENAME ":" FNR ": " name " stands after " last)
    if (name == last)
        complain(FILENAME ":" FNR ": " name " stands there twice")
    last = name
}

END {
    for (source in sources)
        if (!(source in listed))
            complain(source ": stands in no list of sources")
    exit bad
}
