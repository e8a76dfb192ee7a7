# Makes the links between the pages work in the reference as they do where the pages are read as
# they are: a heading gets the anchor that its text gives (lower case, blanks as dashes, no
# punctuation), behind the name of its page.
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
!code { # links to headers, and to what is no part of the reference
    gsub(/\]\(mavkit\/([a-z]+\/)?/, "](@ref ")
    gsub(/\]\(\.\.\/mavkit\/([a-z]+\/)?/, "](@ref ")
    while (match($0, /\[[^]]*\]\((\.\.\/)?(examples|tests|bench|tools|cmake)\/[^)]*\)/)) {
        text = substr($0, RSTART + 1, RLENGTH)
        sub(/\].*/, "", text)
        $0 = substr($0, 1, RSTART - 1) text substr($0, RSTART + RLENGTH)
    }
}
{ print }
