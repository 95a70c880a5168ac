#!/bin/sh
# Checks that the shared library exports exactly the declarations marked
# QX_API in the public headers. Usage: check_exports.sh LIBRARY INCLUDE_DIR
set -eu
lib=$1
headers=$2
exported=$(nm -D --defined-only "$lib" | awk 'NF == 3 && $3 !~ /^_/ { sub(/@.*/, "", $3); print $3 }' | sort -u)
declared=$(cat "$headers"/*.h | perl -0777 -ne '
  while (/QX_API\b([^;{]*);/g) {
    my $d = $1;
    if ($d =~ /\(\s*\*\s*(\w+)\s*\)\s*\(/) { print "$1\n" }       # returns a function pointer
    elsif ($d =~ /(\w+)\s*\(/) { print "$1\n" }                     # function
    elsif ($d =~ /(\w+)\s*(\[[^\]]*\])?\s*$/) { print "$1\n" }      # data word
  }' | sort -u)
missing=$(printf '%s\n' "$declared" | comm -23 - /dev/fd/3 3<<EOF2
$exported
EOF2
)
extra=$(printf '%s\n' "$exported" | comm -23 - /dev/fd/3 3<<EOF2
$declared
EOF2
)
if [ -n "$missing" ] || [ -n "$extra" ]; then
  echo "declared but not exported:" $missing
  echo "exported but not declared:" $extra
  exit 1
fi
echo "$(printf '%s\n' "$declared" | wc -l) public symbols, all exported and nothing else"
