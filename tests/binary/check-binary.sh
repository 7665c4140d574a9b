#!/usr/bin/env bash
# Checks the built plug-in as a host's loader sees it:
#  - its dynamic symbol table defines CreateInstance and no other symbol of ours;
#  - it needs no shared library besides the C and C++ runtimes (libunwind belongs to Debian's
#    libc++ runtime; sanitizer runtimes in sanitizer builds);
#  - it is hardened: full RELRO, no executable stack, stack protector, fortified libc calls.
# Usage: check-binary.sh LIBRARY NM READELF SANITIZED(0|1)
set -euo pipefail
library=$1 nm=$2 readelf=$3 sanitized=$4
status=0
fail() { echo "FAIL: $*"; status=1; }

# Each tool's output is captured whole before it is searched: a reader that stops at its first
# match (grep -q) would kill the tool with SIGPIPE and fail the pipeline at random.
dynamic=$("$readelf" -d "$library")
segments=$("$readelf" -lW "$library")
undefined=$("$nm" -D --undefined-only "$library" | awk '{print $NF}')
has() { grep -E "$2" <<<"$1" >/dev/null; }

defined=$("$nm" -D --defined-only "$library" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
if [ "$sanitized" = 0 ]; then
  [ "$defined" = "CreateInstance" ] || fail "exported symbols are not exactly CreateInstance: $(echo $defined)"
else
  # Sanitizer runtimes add interceptors of their own; ours must still be CreateInstance alone.
  ours=$(echo "$defined" | grep -i -E 'kalvo|KALVO|Json|Values|Logger' || true)
  [ -z "$ours" ] || fail "internal symbols exported: $ours"
  has "$defined" '^CreateInstance$' || fail "CreateInstance is not exported"
fi

allowed='^(libc\.so\.6|libunwind\.so\.1|libm\.so\.6|libstdc\+\+\.so\.6|libgcc_s\.so\.1|libc\+\+\.so\.1|libc\+\+abi\.so\.1|ld-linux.*|libasan\.so\..*|libubsan\.so\..*|libtsan\.so\..*)$'
while read -r needed; do
  [[ "$needed" =~ $allowed ]] || fail "needs a shared library beyond the runtimes: $needed"
done < <(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic")

has "$dynamic" 'BIND_NOW|FLAGS.*NOW' || fail "not linked with -z now (full RELRO)"
has "$segments" 'GNU_RELRO' || fail "no RELRO segment"
stack=$(grep GNU_STACK <<<"$segments" || true)
[ -n "$stack" ] && ! has "$stack" 'RWE' || fail "executable or unmarked stack: $stack"
has "$undefined" '__stack_chk_fail' || fail "no stack protector"
if [ "$sanitized" = 0 ]; then
  has "$undefined" '__[a-z]+_chk' || fail "no fortified libc calls"
fi

[ "$status" = 0 ] && echo "binary checks passed: $library"
exit "$status"
