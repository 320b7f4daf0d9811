# Finds the public operations of headers that no comment describes.
#
# Usage: awk -f bare.awk FILE...
#
# Prints file:line: operation for each. A comment stands above its operation and
# counts for all that follow it up to the next blank line; one at the end of a
# line counts for that line.
#
# These need none, for there is nothing to add to their names: constructors,
# destructors and operators, what overrides or is left to the compiler, begin and
# end, and accessors that fit on a line.
#
# The layout is the formatter's: members stand four columns in, their bodies and
# continued lines deeper.

function complain(text) {
    print FILENAME ":" at ": " text
    bad = 1
}

function judge(text,    name) {
    if (text !~ /\(/ || text ~ /\/\//)
        return
    if (text ~ /^(friend|using|typedef|static_assert|namespace|extern|class|struct|KES_)/)
        return
    if (text ~ /(override|final)( \{.*|;)$/ || text ~ /= (delete|default);/)
        return
    if (text ~ /\(\) const( noexcept)? \{ return [A-Za-z]+( [=!]= nullptr)?; \}$/)
        return
    name = text
    sub(/\(.*/, "", name)
    if (name ~ /operator *[-+=!<>*%]+$/ || name ~ /~/ || name ~ /::/)
        return
    sub(/^.*[ *&]/, "", name)
    if (name == class || name == "begin" || name == "end")
        return
    complain("no comment says what " name " does")
}

FNR == 1 { class = ""; access = ""; described = 0; pending = ""; ++files }

# A declaration goes on until it ends, or its body begins.
pending != "" {
    line = $0
    sub(/^[ \t]+/, " ", line)
    pending = pending line
    if (line ~ /[;{}]$/) {
        judge(pending)
        pending = ""
    }
    next
}

# A macro's lines are not declarations yet.
inMacro { inMacro = /\\$/; next }
/^[ \t]*#/ { inMacro = /\\$/; next }

/^[ \t]*$/ { described = 0; next }

/^(template *<[^>]*> *)?(class|struct) / && !/;[ \t]*$/ {
    class = $0
    sub(/^template *<[^>]*> */, "", class)
    access = class ~ /^struct/ ? "public" : "private"
    sub(/^(class|struct) +/, "", class)
    sub(/^KES_EXPORT +/, "", class)
    sub(/[ :{<].*/, "", class)
    described = 0
    next
}
/^};/ { class = ""; next }
/^(public|protected|private):/ {
    access = $0
    sub(/:.*/, "", access)
    described = 0
    next
}

/^(    )?\/\// { described = 1; next }
described { next }

(class != "" && access == "public" && /^    [^ \/})]/) || (class == "" && /^[A-Za-z]/) {
    at = FNR
    text = $0
    sub(/^    /, "", text)
    if (text ~ /^(template|requires)/ && text !~ /\(/)
        next
    if (text !~ /\/\// && text !~ /[;{}:]$/)
        pending = text
    else
        judge(text)
}

END {
    if (!files) {
        print "bare.awk: no files"
        bad = 1
    }
    exit bad
}
