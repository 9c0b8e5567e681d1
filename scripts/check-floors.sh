#!/bin/sh
# Fails, naming each file and include, when a lower folder of src/ includes a
# folder above it. The lower floors are what everything else stands on; an include
# upward there would pull the engines and the program into the store and the
# platform seams, and make a cycle of them.
#
#   scripts/check-floors.sh [src-dir]
#
# Each floor lists the folders its files may include. Unit tests (*Test.cpp) may
# also include the test support in testing/.
set -u
src=${1:-$(dirname "$0")/../src}

allowed() {
    case $1 in
        base) echo "base" ;;
        platform) echo "base platform" ;;
        records) echo "base platform records" ;;
        persistence) echo "base platform records persistence" ;;
    esac
}

floors="base platform records persistence"
for floor in $floors; do
    [ -d "$src/$floor" ] || { echo "check-floors: no folder $src/$floor" >&2; exit 2; }
done

found=$(for floor in $floors; do
    for file in "$src/$floor"/*.hpp "$src/$floor"/*.cpp; do
        [ -f "$file" ] || continue
        ok=$(allowed "$floor")
        case $file in *Test.cpp) ok="$ok testing" ;; esac
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
echo "check-floors: a lower folder of src/ includes one above it (see ARCHITECTURE.md)" >&2
exit 1
