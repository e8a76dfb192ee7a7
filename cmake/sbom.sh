#!/bin/sh
# sbom.sh TREE NAME VERSION DEPENDS: the SPDX 2.3 bill of materials of the files under TREE, as JSON
# on standard output. DEPENDS: a Debian list such as "libc6 (>= 2.34), libstdc++6".
# SOURCE_DATE_EPOCH is its date, so the same files always give the same bill.
set -eu
tree=$1 name=$2 version=$3 depends=$4
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
export LC_ALL=C

(cd "$tree" && find . -path ./DEBIAN -prune -o -type f ! -name '*.spdx.json' -print) |
    sort >"$work/files"
[ -s "$work/files" ]
while read -r file; do
    sha1=$(sha1sum <"$tree/$file") sha256=$(sha256sum <"$tree/$file")
    echo "$file ${sha1%% *} ${sha256%% *}"
done <"$work/files" >"$work/sums"
verification=$(cut -d' ' -f2 "$work/sums" | sort | tr -d '\n' | sha1sum)
verification=${verification%% *}
echo "$depends" | tr ',' '\n' | sed 's/^ *//; /^$/d' | sort >"$work/depends"

cat <<END
{
  "spdxVersion": "SPDX-2.3",
  "dataLicense": "CC0-1.0",
  "SPDXID": "SPDXRef-DOCUMENT",
  "name": "$name-$version",
  "documentNamespace": "https://example.org/spdx/$name-$version-$verification",
  "creationInfo": {
    "created": "$(date -u -d "@$SOURCE_DATE_EPOCH" +%Y-%m-%dT%H:%M:%SZ)",
    "creators": ["Organization: The mavkit authors"]
  },
  "packages": [
END
awk '{
    printf "    {\"name\": \"%s\", \"SPDXID\": \"SPDXRef-Needed-%d\", ", $1, NR
    comment = substr($0, length($1) + 2)
    if (comment != "") printf "\"comment\": \"%s\", ", comment
    print "\"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false},"
}' "$work/depends"
cat <<END
    {
      "name": "$name",
      "SPDXID": "SPDXRef-Package",
      "versionInfo": "$version",
      "supplier": "Organization: The mavkit authors",
      "downloadLocation": "NOASSERTION",
      "filesAnalyzed": true,
      "packageVerificationCode": {"packageVerificationCodeValue": "$verification"},
      "licenseConcluded": "MIT",
      "licenseDeclared": "MIT",
      "licenseInfoFromFiles": ["NOASSERTION"],
      "copyrightText": "$(sed -n 's/^\(Copyright .*\)/\1/p' LICENSE)"
    }
  ],
  "files": [
END
awk '{
    if (NR > 1) print ","
    printf "    {\"fileName\": \"%s\", \"SPDXID\": \"SPDXRef-File-%d\", ", $1, NR
    printf "\"checksums\": [{\"algorithm\": \"SHA1\", \"checksumValue\": \"%s\"}, ", $2
    printf "{\"algorithm\": \"SHA256\", \"checksumValue\": \"%s\"}], ", $3
    printf "\"licenseConcluded\": \"MIT\", \"licenseInfoInFiles\": [\"NOASSERTION\"], "
    printf "\"copyrightText\": \"NOASSERTION\"}"
}' "$work/sums"
printf '\n  ],\n  "relationships": [\n'
awk '
function relate(from, kind, to) {
    printf "    {\"spdxElementId\": \"SPDXRef-%s\", \"relationshipType\": \"%s\", ", from, kind
    printf "\"relatedSpdxElement\": \"SPDXRef-%s\"},\n", to
}
FILENAME == ARGV[1] { relate("Package", "CONTAINS", "File-" FNR) }
FILENAME == ARGV[2] { relate("Package", "DEPENDS_ON", "Needed-" FNR) }
' "$work/sums" "$work/depends"
cat <<'END'
    {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
     "relatedSpdxElement": "SPDXRef-Package"}
  ]
}
END
