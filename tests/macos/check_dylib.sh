#!/usr/bin/env bash
# Reads the universal macOS plug-in with LLVM's Mach-O tools and fails on the
# first property a Mac host or loader relies on that it does not have.
#   check_dylib.sh QRVVLC.dylib QRVVLC.so QRVHOST STUBS_DIR
set -euo pipefail
export LC_ALL=C
dylib=$1 linux_so=$2 qrvhost=$3 stubs=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

archs=$(llvm-lipo-14 -archs "$dylib" | xargs)
[ "$archs" = "x86_64 arm64" ] || fail "slices are '$archs', not 'x86_64 arm64'"

# Registered names and declarations: class names, property names and types, and
# whole method, event and constant declarations, as the Linux build registers them.
"$qrvhost" describe | sed -E 's/^class ([^ ]+) super .*/\1/; s/^[^ ]+ (shared-)?property ([^ ]+) as ([^ ]+).*/\2\n\3/;
  s/^[^ ]+ (method|shared-method|event|constant) //; s/ \[assign\]$//' | sort -u >"$work/registered"
[ "$(wc -l <"$work/registered")" -gt 100 ] || fail "qrvhost describe listed too little"
# Strings shaped like a declaration: a parameter list with typed parameters, a
# result type, or a constant's value.
id='[A-Za-z_][A-Za-z0-9_]*'
declaration_shaped() {
  grep -E "^$id(\(.* as .*\))?( as $id(\(\))?)?\$|^$id = .+\$" | grep -E '\(| as | = ' || true
}
strings -a -n 3 "$linux_so" | sort -u >"$work/linux-strings"

expected_libs='/System/Library/Frameworks/CoreFoundation.framework/Versions/A/CoreFoundation
/System/Library/Frameworks/CoreGraphics.framework/Versions/A/CoreGraphics
/System/Library/Frameworks/Foundation.framework/Versions/A/Foundation
/usr/lib/libSystem.B.dylib'

for arch in x86_64 arm64; do
  slice=$work/$arch.dylib
  llvm-lipo-14 "$dylib" -thin "$arch" -output "$slice" || { fail "$arch: no slice"; continue; }
  exports=$(llvm-nm-14 -g --defined-only -j "$slice")
  [ "$exports" = _REALPluginMain ] || fail "$arch exports: $(echo "$exports" | head -5 | tr '\n' ' ')"

  llvm-objdump-14 --macho --private-headers "$slice" >"$work/headers"
  # The value of field $2 in every load command named $1.
  field() { awk -v cmd="$1" -v key="$2" '$1 == "cmd" { in_cmd = ($2 == cmd) } in_cmd && $1 == key { print $2 }' \
    "$work/headers"; }
  [ "$(field LC_ID_DYLIB name)" = QRVVLC.dylib ] || fail "$arch install name: $(field LC_ID_DYLIB name)"
  libs=$(field LC_LOAD_DYLIB name | sort)
  [ "$libs" = "$expected_libs" ] || fail "$arch loads: $(echo "$libs" | tr '\n' ' ')"
  for other in LC_LOAD_WEAK_DYLIB LC_REEXPORT_DYLIB LC_LAZY_LOAD_DYLIB LC_LOAD_UPWARD_DYLIB; do
    [ -z "$(field "$other" name)" ] || fail "$arch has $other $(field "$other" name)"
  done
  [ "$(field LC_BUILD_VERSION platform)" = macos ] || fail "$arch platform: $(field LC_BUILD_VERSION platform)"
  [ "$(field LC_BUILD_VERSION minos)" = 11.0 ] || fail "$arch minimum macOS: $(field LC_BUILD_VERSION minos)"
  signature=$(field LC_CODE_SIGNATURE datasize)
  if [ "$arch" = arm64 ] && ! [ "${signature:-0}" -gt 0 ]; then fail "arm64 slice is not signed"; fi
  grep -q TWOLEVEL "$work/headers" || fail "$arch is not linked with two-level names"

  # Every undefined symbol is bound to one of the four libraries, and each
  # framework's stub lists exactly the symbols the slice takes from it.
  llvm-nm-14 -m -u "$slice" >"$work/undefined"
  unbound=$(grep -vE '\(from (libSystem|CoreFoundation|CoreGraphics|Foundation)\)$' "$work/undefined" || true)
  [ -z "$unbound" ] || fail "$arch undefined elsewhere: $(echo "$unbound" | head -5 | tr '\n' ' ')"
  for framework in CoreFoundation CoreGraphics Foundation; do
    used=$(sed -n "s/.* external \\([^ ]*\\) (from $framework)\$/\\1/p" "$work/undefined" | sort)
    listed=$(grep -oE "'_[A-Za-z0-9_]+'" "$stubs/$framework.framework/$framework.tbd" | tr -d "'" | sort)
    [ "$used" = "$listed" ] || fail "$arch uses from $framework: $(echo "$used" | tr '\n' ' ') but the stub lists: $(
      echo "$listed" | tr '\n' ' ')"
  done

  # The slice carries every registered declaration, and no other declaration
  # that the Linux build lacks.
  llvm-otool-14 -v -s __TEXT __cstring "$slice" | sed 1,2d | sed -E 's/^[0-9a-f]{16}  //' | sort -u >"$work/strings"
  missing=$(comm -23 "$work/registered" "$work/strings")
  [ -z "$missing" ] || fail "$arch lacks registered: $(echo "$missing" | head -5 | tr '\n' '|')"
  extra=$(declaration_shaped <"$work/strings" | comm -23 - "$work/registered" | comm -23 - "$work/linux-strings")
  [ -z "$extra" ] || fail "$arch declares beyond Linux: $(echo "$extra" | head -5 | tr '\n' '|')"
done

[ "$failures" -eq 0 ] || exit 1
echo "QRVVLC.dylib: both slices checked"
