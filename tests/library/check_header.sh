#!/bin/sh
# Fails unless the public header compiles alone in the languages of its users, and README.md's C
# example with it.
# Usage: check_header.sh SOURCE_ROOT C_COMPILER C++_COMPILER
set -e
strict="-pedantic -Wall -Wextra -Wconversion -Werror -I $1/include -fsyntax-only"
for standard in c99 c11; do
    echo '#include <zpr_framehold.h>' | "$2" -x c -std=$standard $strict -
    sed -n '/^```c$/,/^```$/p' "$1/README.md" | sed '/^```/d' |
        "$2" -x c -std=$standard $strict -Wno-missing-field-initializers -
done
for standard in c++98 c++17; do
    echo '#include <zpr_framehold.h>' | "$3" -x c++ -std=$standard $strict -
done
grep -q '^```c$' "$1/README.md" || { echo "README.md has no C example"; exit 1; }
