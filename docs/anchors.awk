# Makes the links between the pages work in the reference as they do where the pages are read as
# they are: a heading gets the anchor that its text gives (lower case, blanks as dashes, no
# punctuation), behind the name of its page.
BEGIN {
    parts = "bench|cmake|examples|machine|mavkit|packaging|tests|tools"
    public["mavkit/mavkit.h"]
    while ((getline line <"mavkit/mavkit.h") > 0)
        if (split(line, part, "\"") == 3 && part[1] == "#include ") public[part[2]]
}
FNR == 1 {
    page = FILENAME
    sub(/^.*\//, "", page)
    sub(/\.md$/, "", page)
}
/^```/ { code = !code }
!code && /^#+ / && page != "README" && FNR > 1 {
    slug = tolower($0)
    sub(/^#+ /, "", slug)
    gsub(/[^a-z0-9 -]/, "", slug)
    gsub(/ /, "-", slug)
    $0 = $0 " {#" page "-" slug "}"
}
!code {
    while (match($0, /\]\((docs\/)?[a-z]*(\.md)?#[a-z0-9-]+\)/)) {
        link = substr($0, RSTART + 2, RLENGTH - 3)
        split(link, part, "#")
        sub(/^docs\//, "", part[1])
        sub(/\.md$/, "", part[1])
        $0 = substr($0, 1, RSTART + 1) "@ref " (part[1] == "" ? page : part[1]) "-" part[2] \
            substr($0, RSTART + RLENGTH - 1)
    }
}
!code { # links to public headers; the text alone of links to what is no part of the reference
    while (match($0, "\\[[^]]*\\]\\((\\.\\./)?(" parts ")/[^)]*\\)")) {
        link = substr($0, RSTART, RLENGTH)
        text = substr(link, 2, index(link, "](") - 2)
        path = substr(link, index(link, "](") + 2)
        sub(/^\.\.\//, "", path)
        sub(/\)$/, "", path)
        name = path
        sub(/.*\//, "", name)
        $0 = substr($0, 1, RSTART - 1) (path in public ? "[" text "](@ref " name ")" : text) \
            substr($0, RSTART + RLENGTH)
    }
}
{ print }
