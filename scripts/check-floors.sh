#!/bin/sh
# Fails, naming each file and include, when a lower folder of src/ includes a
# folder above it. The lower floors are what everything else stands on; an include
# upward there would pull the engines and the program into the store and the
# platform seams, and make a cycle of them.
#
#   scripts/check-floors.sh [src-dir]
#
# A folder's files may include it and the folders below it, in the order of
# ARCHITECTURE.md. Unit tests (*Test.cpp) may also include the test support in
# testing/; above persistence they may include any folder, since they drive their
# engine through the real environment. Nothing but a test includes testing/.
set -u
src=${1:-$(dirname "$0")/../src}

order="base platform records persistence git github reports agent app screens web cli"
lower="base platform records persistence"

# The folders `floor` may include: itself and every one before it in the order.
allowed() {
    for folder in $order; do
        printf '%s ' "$folder"
        [ "$folder" = "$1" ] && return
    done
}

for floor in $order; do
    [ -d "$src/$floor" ] || { echo "check-floors: no folder $src/$floor" >&2; exit 2; }
done

found=$(for floor in $order; do
    find "$src/$floor" -name '*.hpp' -o -name '*.cpp' | sort | while IFS= read -r file; do
        ok=$(allowed "$floor")
        case $file in
            *Test.cpp)
                case " $lower " in
                    *" $floor "*) ok="$ok testing" ;;
                    *) continue ;;
                esac
                ;;
        esac
        # Only quoted includes of the form "folder/..." name a folder of src/.
        grep -n '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^"/]*/' "$file" |
            while IFS= read -r line; do
                target=${line#*\"}
                folder=${target%%/*}
                case " $ok " in
                    *" $folder "*) ;;
                    *) echo "${file#"$src"/}:${line%%:*}: includes \"${target%\"*}\", above $floor" ;;
                esac
            done
    done
done)
[ -z "$found" ] && exit 0
echo "$found"
echo "check-floors: a folder of src/ includes one above it (see ARCHITECTURE.md)" >&2
exit 1
