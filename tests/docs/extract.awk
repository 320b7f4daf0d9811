# Takes the code out of one page of the guide.
#
#   awk -v page=docs/events.md -v name=events -v out=FOLDER -f extract.awk PAGE
#
# What a fenced block is stands behind its opening fence:
#
#   cpp               a complete program
#   cpp file=NAME.h   a header that the page's programs include; blocks with the
#                     same name are joined
#   cpp driver=NAME   the source of a driver that the page's programs open;
#                     blocks with the same name are joined
#   cpp steps         statements; all such blocks of a page are joined, in their
#                     order, to the body of one main function, which includes
#                     the page's headers. `steps=NAME` makes several of them
#   text              what the program or the step before it prints; without
#                     one it prints nothing
#   sh, cmake         for people, unchecked
#
# Everything else is an error, so no code escapes the check. The sources are
# written to FOLDER with what they have to print; one line for each target goes
# to standard output: `program TARGET` or `driver TARGET NAME`.

function fail(line, message) {
    print page ":" line ": " message > "/dev/stderr"
    failed = 1
    exit 1
}

function attribute(word, key) {
    return substr(word, 1, length(key) + 1) == key "=" ? substr(word, length(key) + 2) : ""
}

# Opens the target that a block belongs to and returns its key.
function enter(kind, base, line,    key) {
    key = kind ":" base
    if (!(key in kindOf)) {
        keys[++count] = key
        kindOf[key] = kind
        baseOf[key] = base
        source[key] = ""
        expected[key] = ""
    }
    source[key] = source[key] "#line " line + 1 " \"" page "\"\n"
    return key
}

function isName(text) {
    return text ~ /^[A-Za-z][A-Za-z0-9_]*$/
}

function openCode(words, number,    word) {
    word = words[2]
    if (number > 2)
        fail(NR, "a block is one thing: " $0)
    if (number == 1)
        return enter("program", ++programs, NR)
    if (word == "steps")
        return openStep("steps")
    if (isName(attribute(word, "steps")))
        return openStep(attribute(word, "steps"))
    if (isName(attribute(word, "driver")))
        return enter("driver", attribute(word, "driver"), NR)
    if (attribute(word, "file") ~ /^[A-Za-z][A-Za-z0-9_]*\.h$/)
        return enter("file", attribute(word, "file"), NR)
    fail(NR, "unknown kind of code: " $0)
}

# Marks in the output where a step begins, so that a difference shows its place.
function openStep(chain,    key) {
    key = "steps:" chain
    if (!(key in kindOf))
        enter("steps", chain, NR)
    source[key] = source[key] "std::cout << \"-- " page ":" NR "\\n\" << std::flush;\n" \
        "#line " NR + 1 " \"" page "\"\n"
    expected[key] = expected[key] "-- " page ":" NR "\n"
    return key
}

/^[ \t]+(```|~~~)/ || /^~~~/ {
    fail(NR, "code stands between ``` at the left margin")
}

/^```/ && !inside {
    inside = NR
    number = split(substr($0, 4), words, " ")
    if (words[1] == "cpp" && number > 0) {
        current = openCode(words, number)
        into = "code"
        printer = kindOf[current] == "program" || kindOf[current] == "steps" ? current : ""
        codes++
    } else if ($0 == "```text") {
        if (printer == "")
            fail(NR, "nothing prints this text")
        into = "text"
    } else if ($0 == "```sh" || $0 == "```cmake") {
        into = ""
    } else {
        fail(NR, "unknown kind of block: " $0)
    }
    next
}

/^```/ {
    if ($0 != "```")
        fail(NR, "the block of line " inside " is not closed")
    # One text for one block of code.
    if (into == "text")
        printer = ""
    inside = 0
    next
}

inside && into == "code" { source[current] = source[current] $0 "\n" }
inside && into == "text" { expected[printer] = expected[printer] $0 "\n" }

function write(file, text) {
    printf "%s", text > (out "/" file)
    close(out "/" file)
}

function stepsProgram(key,    text, i) {
    text = "#include <iostream>\n#include <kes/Kes.h>\n"
    for (i = 1; i <= count; i++)
        if (kindOf[keys[i]] == "file")
            text = text "#include \"" baseOf[keys[i]] "\"\n"
    return text "int main() try {\n" source[key] \
        "} catch (Kes::Exception& failure) {\n" \
        "    std::cerr << failure.asString() << '\\n';\n    return 1;\n}\n"
}

END {
    if (failed)
        exit 1
    if (inside)
        fail(inside, "the block is not closed")
    for (i = 1; i <= count; i++) {
        key = keys[i]
        kind = kindOf[key]
        target = "doc_" name "_" baseOf[key]
        if (kind == "file") {
            write(baseOf[key], source[key])
            continue
        }
        if (kind == "driver") {
            write(target ".cpp", source[key])
            print "driver " target " " baseOf[key]
            continue
        }
        if (kind == "program" && source[key] !~ /int main\(/)
            fail(NR, "program " baseOf[key] " has no main function; is it `cpp steps`?")
        write(target ".cpp", kind == "steps" ? stepsProgram(key) : source[key])
        write(target ".txt", expected[key])
        print "program " target
    }
    if (codes > 0 && count == 0)
        fail(NR, "no target was made of " codes " blocks")
}
