#!/usr/bin/awk -f
# Makes plain comments the reference: a block of them belongs to what follows it, or to the file when nothing does. The
# first sentence of the first block is what the file is about.
# Indented lines are tables and stay as they stand; elsewhere nothing is markup.

# Between quotation marks that stand on one line nothing is markup as it is.
function escaped(line,    part, parts, i, text) {
    parts = split(line, part, "\"")
    for (i = 1; i <= parts; i++) {
        if (i % 2 == 1 || i == parts)
            gsub(/[][<>*_#@%\\`~|]|--+/, "\\\\&", part[i])
        text = text (i > 1 ? "\"" : "") part[i]
    }
    return text
}

function describeFile(    i) {
    print "/// @file"
    for (i = 1; $0 != "" && i <= count; i++) {
        print "///" escaped(substr(block[i], 1, match(block[i], /\.( |$)/) ? RSTART : length(block[i])))
        if (RSTART)
            break
    }
    if ($0 != "")
        print ""
}

function flush(    i, table) {
    if (count == 0)
        return
    if (!described)
        describeFile()
    described = 1
    for (i = 1; i <= count; i++) {
        if ((block[i] ~ /^  /) != table) {
            table = !table
            print table ? "/// @verbatim" : "/// @endverbatim"
        }
        print "///" (table ? block[i] : escaped(block[i]))
    }
    if (table)
        print "/// @endverbatim"
    count = 0
}

/^ *\/\// {
    sub(/^ *\/\//, "")
    block[++count] = $0
    next
}

{
    flush()
    print
}

END { flush() }
