# Finds includes that lead from a folder to one that it may not use.
#
# Usage: awk -f layers.awk layers.txt FILE...
#
# The files are named from the root of the project. Prints file:line: for each
# include that layers.txt does not allow, for each file whose folder is not in it
# and for each line of it that allows a folder unknown to it.

function complain(text) {
    print FILENAME ":" FNR ": " text
    bad = 1
}

# The folder of the table that a path is in, "" for none.
function folderOf(path,    name) {
    name = path
    while (sub(/\/[^\/]*$/, "", name))
        if (name in allowed)
            return name
    return ""
}

FILENAME == ARGV[1] {
    sub(/#.*/, "")
    if ($0 !~ /[^ \t]/)
        next
    if (!match($0, /^[^: \t]+:/)) {
        complain("this is no \"folder: folder...\"")
        next
    }
    name = substr($0, 1, RLENGTH - 1)
    rest = " " substr($0, RLENGTH + 1) " "
    gsub(/[ \t]+/, " ", rest)
    allowed[name] = rest
    count = split(rest, parts, " ")
    for (i = 1; i <= count; ++i)
        if (parts[i] != "*" && !(parts[i] in allowed))
            complain("\"" parts[i] "\" is no folder below \"" name "\"")
    next
}

FNR == 1 {
    ++files
    here = folderOf(FILENAME)
    if (here == "")
        complain("the folder is not in the table")
}

/^[ \t]*#[ \t]*include[ \t]*["<]/ {
    path = $0
    sub(/^[^"<]*["<]/, "", path)
    sub(/[">].*/, "", path)
    if (here == "" || path ~ /^kes\// || path !~ /\//)
        next
    if (path ~ /\.\.\//)
        complain(path " does not say from the root what it includes")
    there = folderOf(path)
    if (there == "" || there == here || allowed[here] == " * ")
        next
    if (index(allowed[here], " " there " ") == 0)
        complain(here " may not use " there ", which " path " belongs to")
}

END {
    if (!files) {
        print "layers.awk: no files"
        bad = 1
    }
    exit bad
}
