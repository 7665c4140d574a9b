#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need, when any is missing.
# Runs as root (apt-get update, then apt-get install); does nothing when all are present.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libc++-14-dev libc++abi-14-dev libclang-rt-14-dev
  rapidjson-dev libfmt-dev libcli11-dev googletest libgtest-dev libgmock-dev libbenchmark-dev
  libsqlite3-dev sqlite3 binutils python3 clang-format
  # zsh, whose line editor the BPF live source watches (its tests type into one).
  zsh
  # kalvo-devhost's BPF live source: libbpf, bpftool (vmlinux.h, skeleton), clang's BPF target.
  libbpf-dev bpftool libelf-dev zlib1g-dev
  # cpack -G DEB: dpkg-shlibdeps (the package's dependencies) and file, which CPack uses to
  # find the binaries to ask it about.
  dpkg-dev file
  # The arm64 build: cross compiler, user-mode emulator, SQLite's and libbpf's arm64 runtimes
  # (multiarch).
  g++-aarch64-linux-gnu qemu-user libsqlite3-0:arm64 libbpf1:arm64
  "$@"
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  if [ "$status" != "install ok installed" ]; then
    missing+=("$package")
  fi
done

if [ "${#missing[@]}" -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  # Packages of a foreign architecture need it known to dpkg before the package lists are read.
  for package in "${missing[@]}"; do
    arch=${package##*:}
    [ "$arch" != "$package" ] || continue
    foreign=$(dpkg --print-foreign-architectures)
    if [ "$arch" != "$(dpkg --print-architecture)" ] && ! grep -x "$arch" <<<"$foreign" >/dev/null; then
      "${sudo_cmd[@]}" dpkg --add-architecture "$arch"
    fi
  done
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
