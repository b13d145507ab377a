#!/bin/sh
# Installs what the build needs on Debian 12, when it is missing: clang and lld
# compile and link; the mingw-w64 packages give the headers, import libraries
# and GCC's POSIX-thread libstdc++ that clang builds against.
set -e
need=""
command -v cmake >/dev/null 2>&1 || need="$need cmake"
command -v make >/dev/null 2>&1 || need="$need make"
command -v clang++ >/dev/null 2>&1 || need="$need clang"
command -v ld.lld >/dev/null 2>&1 || need="$need lld"
command -v llvm-objcopy >/dev/null 2>&1 || need="$need llvm"
command -v x86_64-w64-mingw32-g++-posix >/dev/null 2>&1 || need="$need g++-mingw-w64-x86-64-posix"
command -v x86_64-w64-mingw32-gcc-posix >/dev/null 2>&1 || need="$need gcc-mingw-w64-x86-64-posix"
command -v x86_64-w64-mingw32-dlltool >/dev/null 2>&1 || need="$need binutils-mingw-w64-x86-64"
command -v wine >/dev/null 2>&1 || need="$need wine wine64"
[ -f /usr/lib/wine/wine64 ] || need="$need wine64"
[ -f /usr/src/googletest/CMakeLists.txt ] || need="$need googletest"
command -v cabextract >/dev/null 2>&1 || need="$need cabextract"
# Header trees of the benchmark's peer logger (copied into the build, header-only).
[ -f /usr/include/spdlog/spdlog.h ] || need="$need libspdlog-dev"
[ -f /usr/include/fmt/format.h ] || need="$need libfmt-dev"
# The syslog collector the forwarding tests start privately (TCP, and TLS
# through the GnuTLS driver), and openssl to make their certificates.
command -v rsyslogd >/dev/null 2>&1 || need="$need rsyslog"
[ -f /usr/lib/x86_64-linux-gnu/rsyslog/lmnsd_gtls.so ] || need="$need rsyslog-gnutls"
command -v openssl >/dev/null 2>&1 || need="$need openssl"
# syslog-ng, the other collector they send to, conflicts with rsyslog as a
# Debian package: it runs from its unpacked package (below), with the
# libraries it links installed by name.
libs=/usr/lib/x86_64-linux-gnu
for pair in libivykis0:libivykis.so.0 libnet1:libnet.so.1 libwrap0:libwrap.so.0 libjson-c5:libjson-c.so.5 \
            libglib2.0-0:libglib-2.0.so.0 libpcre3:libpcre.so.3 libssl3:libssl.so.3 libcap2:libcap.so.2 \
            libsystemd0:libsystemd.so.0; do
  [ -e "$libs/${pair#*:}" ] || need="$need ${pair%%:*}"
done
if [ -n "$need" ]; then
  echo "Installing:$need"
  SUDO=""
  [ "$(id -u)" = 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends $need
fi
SYSLOG_NG=/opt/kvtest/syslog-ng
if [ ! -x "$SYSLOG_NG/usr/sbin/syslog-ng" ]; then
  echo "Unpacking syslog-ng-core into $SYSLOG_NG"
  SUDO=""
  [ "$(id -u)" = 0 ] || SUDO="sudo"
  download=$(mktemp -d)
  chmod 777 "$download"  # apt-get download runs as _apt
  (cd "$download" && { apt-get download -qq syslog-ng-core 2>/dev/null ||
    { $SUDO apt-get update -qq && apt-get download -qq syslog-ng-core; }; })
  $SUDO mkdir -p "$SYSLOG_NG"
  $SUDO dpkg -x "$download"/syslog-ng-core_*.deb "$SYSLOG_NG"
  rm -rf "$download"
fi
