#!/usr/bin/env bash
# Writes KXTString.xojo_plugin, the file a Xojo user puts into the IDE's Plugins folder: a zip
# archive whose one top folder is "KXTString/Build Resources/", with one library per
# architecture ("Linux x86-64/", "Linux arm64/"), without its debugging information. Each
# library must pass scripts/elf_policy.py (glibc 2.17, no C++ runtime) before it goes in.
#   scripts/package.sh                   # builds build/ and the arm64 library, writes
#                                        # build/KXTString.xojo_plugin
#   scripts/package.sh --x86-64-only     # an archive without the arm64 library
#   scripts/package.sh --arm64-if-built  # arm64 only if build-arm64/ already holds it
#   scripts/package.sh --no-build        # take the libraries as they are (CMake's xojo_plugin)
#   --build-dir DIR (default build), --output FILE (default DIR/KXTString.xojo_plugin)
# The arm64 library comes from build-arm64/, built by scripts/build-arm64.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build
output=""
arm64=required
compile=yes
while (($#)); do
  case $1 in
    --x86-64-only) arm64=no ;;
    --arm64-if-built) arm64=if-built ;;
    --no-build) compile=no ;;
    --build-dir) build=$2; shift ;;
    --output) output=$2; shift ;;
    *) echo "usage: scripts/package.sh [--x86-64-only | --arm64-if-built] [--no-build]" \
         "[--build-dir DIR] [--output FILE]" >&2; exit 2 ;;
  esac
  shift
done
output=${output:-$build/KXTString.xojo_plugin}
library=libKXTString.Linux32.so.21160
x86_64_library=$build/$library
arm64_library=build-arm64/$library

if [[ $compile == yes ]]; then
  scripts/deps.sh
  [[ -f $build/build.ninja ]] || cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j"$(nproc)" --target KXTString
  if [[ $arm64 == required && -x scripts/build-arm64.sh ]]; then
    scripts/build-arm64.sh
  fi
fi
[[ -f $x86_64_library ]] || { echo "package: no $x86_64_library (build it first)" >&2; exit 1; }
libraries=("Linux x86-64:$x86_64_library:strip")
case $arm64 in
  required)
    if [[ ! -f $arm64_library ]]; then
      echo "package: no $arm64_library: build it (scripts/build-arm64.sh), or package without" \
        "it: scripts/package.sh --x86-64-only" >&2
      exit 1
    fi
    libraries+=("Linux arm64:$arm64_library:aarch64-linux-gnu-strip") ;;
  if-built)
    if [[ -f $arm64_library ]]; then
      libraries+=("Linux arm64:$arm64_library:aarch64-linux-gnu-strip")
    else
      echo "package: $arm64_library is not built: the archive holds x86-64 only" >&2
    fi ;;
esac

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
paths=()
for entry in "${libraries[@]}"; do
  IFS=: read -r folder file strip <<<"$entry"
  target="$stage/KXTString/Build Resources/$folder/$library"
  paths+=("$target")
  mkdir -p "$(dirname "$target")"
  "$strip" --strip-debug -o "$target" "$file"
  chmod 755 "$target"
done
scripts/elf_policy.py "${paths[@]}" | sed "s|$stage/||"
# A fixed time on every entry: the same libraries give the same archive.
find "$stage" -exec touch -h -d '2024-11-11 00:00:00 UTC' {} +
mkdir -p "$(dirname "$output")"
output=$(realpath "$output")
rm -f "$output"
(cd "$stage" && zip -q -X -r "$output" KXTString)
echo "Wrote $output:"
unzip -l "$output" | sed -n '4,$p' | grep -v -- '----' | sed '$d'
