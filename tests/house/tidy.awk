# Puts sources together into the units that tidy.txt describes.
#
# Usage: awk -v root=FOLDER -v units=FOLDER -f tidy.awk tidy.txt FILE...
#
# The sources are named from the root. Writes one file for each line of tidy.txt
# into `units`, which includes them, and prints its name. Fails for a source of
# which no line speaks, and for a line or a word of it that stands for none.

function complain(text) {
    print text > "/dev/stderr"
    bad = 1
}

# The last source comes with the last line of the table: the names need no reading.
BEGIN {
    table = ARGV[1]
    for (i = 2; i < ARGC; ++i)
        sources[++count] = ARGV[i]
    ARGC = 2
}

{
    sub(/#.*/, "")
    if (NF == 0)
        next
    ++lines
    left[lines] = $1 == "-"
    for (i = 1; i <= NF; ++i)
        if ($i != "-")
            line[$i] = lines
}

END {
    for (i = 1; i <= count; ++i) {
        folder = sources[i]
        sub(/\/?[^\/]*$/, "", folder)
        name = sources[i] in line ? sources[i] : folder
        if (!(name in line)) {
            complain(sources[i] ": no line of tidy.txt speaks of it")
            continue
        }
        met[name] = 1
        if (!left[line[name]])
            text[line[name]] = text[line[name]] "#include \"" root "/" sources[i] "\"\n"
    }
    for (name in line)
        if (!(name in met))
            complain("tidy.txt: " name " stands for no source")
    for (i = 1; i <= lines; ++i)
        if (i in text) {
            unit = units "/" i ".cpp"
            printf "%s", text[i] > unit
            close(unit)
            print unit
            ++written
        }
    if (!written)
        complain("tidy.awk: no sources")
    exit bad
}
