# Fits a page of the manual to Doxygen: awk -f filter.awk PAGE.md
#
# The pages are written for readers of the repository, where a heading's anchor is made of its words and a link may lead to any
# file. Doxygen knows no such anchors and has one space of names for all pages: each heading gets its anchor with the page's
# name in front, and so do the links. A link that leaves the manual becomes its own text.

BEGIN {
    page = ARGV[1]
    sub(/.*\//, "", page)
    sub(/\.md$/, "", page)
}

/^```/ { is_block = !is_block }

is_block {
    print
    next
}

# As the repository's readers see it: small letters, dashes for spaces, no punctuation.
/^#+ / {
    anchor = $0
    sub(/^#+ /, "", anchor)
    anchor = tolower(anchor)
    gsub(/[^a-z0-9 _-]/, "", anchor)
    gsub(/ /, "-", anchor)
    print $0 " {#" place(page, /^# / ? "" : anchor) "}"
    next
}

{ print with_links(with_code($0)) }

# The name of a heading among those of all pages; the page itself where there is none.
function place(of_page, heading) {
    return "manual_" of_page (heading == "" ? "" : "_" heading)
}

# Doxygen takes a quote inside `...` for the end of it, and a "::open" for a link. Neither is so inside <tt>, with a backslash.
function with_code(rest, line, span) {
    while (match(rest, /`[^`]+`/)) {
        span = substr(rest, RSTART, RLENGTH)
        if (span ~ /'| ::/) {
            span = "<tt>" substr(span, 2, length(span) - 2) "</tt>"
            gsub(/ ::/, " \\::", span)
        }
        line = line substr(rest, 1, RSTART - 1) span
        rest = substr(rest, RSTART + RLENGTH)
    }
    return line rest
}

function with_links(rest, line, middle, text, target, parts) {
    while (match(rest, /\[[^][]+\]\([^()]+\)/)) {
        middle = index(substr(rest, RSTART), "](")
        text = substr(rest, RSTART + 1, middle - 2)
        target = substr(rest, RSTART + middle + 1, RLENGTH - middle - 2)
        line = line substr(rest, 1, RSTART - 1)
        rest = substr(rest, RSTART + RLENGTH)
        if (target ~ /^\.\.\//) {
            line = line text
        } else if (target ~ /^([A-Za-z]+\.md)?(#|$)/) {
            split(target, parts, "#")
            sub(/\.md$/, "", parts[1])
            line = line "[" text "](#" place(parts[1] == "" ? page : parts[1], parts[2]) ")"
        } else {
            line = line "[" text "](" target ")"
        }
    }
    return line rest
}
