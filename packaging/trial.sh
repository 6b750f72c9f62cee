#!/bin/bash
# Installs the packages into a bare Debian and uses them there: packaging/trial.sh PACKAGES. As root, with debootstrap.
# The bare system is made once and copied; BARE names one that is there already. Mounts live in a namespace of their own
# and vanish with it.
set -eu

packages=$(cd "$1" && pwd)
source=$(cd "$(dirname "$0")/.." && pwd)
bare=${BARE:-$packages/../bare}
root=$packages/../trial

if [ ! -e "$bare/.ready" ]; then
  mirror=$(sed -n 's/^URIs: *//p; s/^deb \(\[.*\] \)\?\(http[^ ]*\).*/\2/p' /etc/apt/sources.list \
    /etc/apt/sources.list.d/* 2>/dev/null | grep -v security | head -n 1)
  debootstrap --variant=minbase bookworm "$bare" "${mirror:-http://deb.debian.org/debian}" >"$packages/../bare.log"
  for file in sources.list sources.list.d apt.conf.d auth.conf.d keyrings trusted.gpg.d; do
    if [ -s "/etc/apt/$file" ]; then cp -a "/etc/apt/$file" "$bare/etc/apt/"; else rm -f "$bare/etc/apt/$file"; fi
  done
  touch "$bare/.ready"
fi
rm -rf --one-file-system "$root"
cp -a --reflink=auto "$bare" "$root"
cp /etc/resolv.conf /etc/hosts "$root/etc/"
mkdir -p "$root/root/packages"
cp "$packages"/*.deb "$root/root/packages/"
cp -r "$source/examples" "$root/root/examples"

cat >"$root/root/trial" <<'END'
set -eu
export DEBIAN_FRONTEND=noninteractive
cd /root
step() { echo "== $*"; }
step "the tool alone, with what it depends on"
apt-get -qq -o Acquire::Retries=3 update
apt-get install --no-install-recommends -y -qq ./packages/tarn_*.deb ./packages/libtarn15_*.deb >install.log 2>&1 ||
  { tail -n 20 install.log; exit 1; }
tarn --version
printf 'BM\072\0\0\0\0\0\0\0\066\0\0\0\050\0\0\0\001\0\0\0\001\0\0\0\001\0\030\0\0\0\0\0\004\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\020\040\060\0' >dot.bmp
tarn resize dot.bmp a.png 64x48
tarn run a.png -- rotate 30 --resize -- convert --gray b.tif
tarn info b.tif
tarn convert a.png c.jpg --storage super
step "programs against the development package"
apt-get install --no-install-recommends -y -qq ./packages/libtarn-dev_*.deb gcc g++ cmake make pkg-config >>install.log 2>&1 ||
  { tail -n 20 install.log; exit 1; }
test "$(pkg-config --modversion tarn)" = "$(dpkg-query -W -f '${Version}' libtarn-dev | sed 's/-.*//')"
cc -std=c11 -Wall -Werror examples/first.c $(pkg-config --cflags --libs tarn) -o first
./first
c++ -std=c++20 -Wall -Wextra -Werror examples/photo.cpp $(pkg-config --cflags --libs tarn) -o photo
./photo
cmake -S examples -B work >cmake.log
cmake --build work >>cmake.log || { tail -n 20 cmake.log; exit 1; }
for program in work/tarn_*; do "$program"; done
if ls packages/python3-tarn_*.deb >/dev/null 2>&1; then
  step "Python"
  apt-get install --no-install-recommends -y -qq ./packages/python3-tarn_*.deb >>install.log 2>&1 ||
    { tail -n 20 install.log; exit 1; }
  python3 -c 'import tarn; print(tarn.__file__)'
  for program in examples/*.py; do [ ! -e "$program" ] || python3 "$program"; done
fi
step "what is left when all is removed"
apt-get purge -y -qq '*tarn*' >>install.log 2>&1
if find /usr /etc /var/lib/dpkg/info -iname '*tarn*' -o -name '*tfcmp*' | grep .; then exit 1; fi
ldconfig -p | grep -i tarn && exit 1
echo clean
END

# shellcheck disable=SC2016  # the inner shell's
exec unshare --mount --pid --fork --kill-child --propagation private bash -c '
  root=$1
  mount -t proc proc "$root/proc"
  mount -t tmpfs -o mode=755 tmpfs "$root/dev"
  for node in "null 3" "zero 5" "full 7" "random 8" "urandom 9"; do
    mknod -m 666 "$root/dev/${node% *}" c 1 "${node#* }"
  done
  ln -s /proc/self/fd "$root/dev/fd"
  mkdir "$root/dev/shm" && mount -t tmpfs tmpfs "$root/dev/shm"
  exec env -i HOME=/root TERM=dumb LC_ALL=C.UTF-8 PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
    chroot "$root" sh /root/trial
' trial "$root"
