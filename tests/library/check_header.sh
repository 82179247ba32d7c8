#!/bin/sh
# Fails unless the public header compiles alone in the languages of its users, and the C examples of
# the documents with it, those of a document together.
# Usage: check_header.sh SOURCE_ROOT C_COMPILER C++_COMPILER
set -e
strict="-pedantic -Wall -Wextra -Wconversion -Werror -I $1/include -fsyntax-only"
for standard in c99 c11; do
    echo '#include <zpr_framehold.h>' | "$2" -x c -std=$standard $strict -
    for document in README.md docs/integrating.md; do
        grep -q '^```c$' "$1/$document" || { echo "$document has no C example"; exit 1; }
        sed -n '/^```c$/,/^```$/p' "$1/$document" | sed '/^```/d' |
            "$2" -x c -std=$standard -D_POSIX_C_SOURCE=200809L $strict \
                -Wno-missing-field-initializers -
    done
done
for standard in c++98 c++17; do
    echo '#include <zpr_framehold.h>' | "$3" -x c++ -std=$standard $strict -
done
