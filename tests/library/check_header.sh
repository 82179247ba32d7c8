#!/bin/sh
# Fails unless each public header compiles alone in the languages of its users, and with it the
# example and the C code in the documents, that of a document together. The README's is a part of the
# example.
# Usage: check_header.sh SOURCE_ROOT C_COMPILER C++_COMPILER
set -e
strict="-pedantic -Wall -Wextra -Wconversion -Werror -I $1/include -fsyntax-only"
headers=$(cd "$1/include" && ls *.h)
for standard in c99 c11; do
    for header in $headers; do
        echo "#include <$header>" | "$2" -x c -std=$standard $strict -
    done
    for document in README.md docs/integrating.md; do
        grep -q '^```c$' "$1/$document" || { echo "$document has no C example"; exit 1; }
        sed -n '/^```c$/,/^```$/p' "$1/$document" | sed '/^```/d' |
            "$2" -x c -std=$standard -D_POSIX_C_SOURCE=200809L $strict \
                -Wno-missing-field-initializers -
    done
done
for standard in c99 c11; do
    "$2" -std=$standard $strict -Wno-missing-field-initializers "$1/examples/live.c"
done
sed -n '/^```c$/,/^```$/p' "$1/README.md" | sed '/^```/d' |
    awk 'FILENAME == "-" { part = part $0 "\n"; next } { whole = whole $0 "\n" }
        END { exit !(part != "" && index(whole, part)) }' - "$1/examples/live.c" ||
    { echo "The C code in README.md is no part of examples/live.c"; exit 1; }
for standard in c++98 c++11 c++14 c++17 c++20; do
    for header in $headers; do
        echo "#include <$header>" | "$3" -x c++ -std=$standard $strict -
    done
done
