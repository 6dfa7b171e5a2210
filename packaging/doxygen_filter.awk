#!/usr/bin/awk -f
# Makes plain comments the reference: a block of them belongs to what follows it, or to the file when nothing does.
# Indented lines are tables and stay as they stand; elsewhere nothing is markup.

function flush(    i, table) {
    if (count == 0)
        return
    if (!described && $0 == "")
        print "/// @file"
    described = 1
    for (i = 1; i <= count; i++) {
        if ((block[i] ~ /^  /) != table) {
            table = !table
            print table ? "/// @verbatim" : "/// @endverbatim"
        }
        if (!table)
            gsub(/[][<>*_#@%\\`~|-]/, "\\\\&", block[i])
        print "///" block[i]
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
