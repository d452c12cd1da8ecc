#!/bin/sh
# make sdk: build/sdk (and build/sdk.zip) for plug-in authors: the kit's
# headers, the IDL with its generated headers, interface ids and proxy-stub
# sources for both architectures, zvfio.exe with the PCM plug-in, the
# surrogate for both architectures, and the sample reader project.
# $1: the build folder (both architectures built); $2: where the SDK goes
# (default: the build folder).
set -e
build=${1:-build}
out=${2:-$build}
root=$(cd "$(dirname "$0")/.." && pwd)
sdk="$out/sdk"
rm -rf "$sdk" "$out/sdk.zip"
mkdir -p "$sdk/include" "$sdk/idl/x64" "$sdk/idl/x86" "$sdk/bin/x64/x86" "$sdk/bin/x86" "$sdk/sample"
cp "$root"/plugins/sdk/*.h "$sdk/include/"
cp "$root"/idl/*.idl "$root"/idl/*.h "$root"/idl/proxy_support.c "$root"/idl/zvtemplate_wire.c "$sdk/idl/"
# the headers and ids are the same for both architectures; the proxies are not
cp "$build"/x64/idl/*.h "$build"/x64/idl/*_i.c "$sdk/idl/"
for arch in x64 x86; do
    cp "$build/$arch"/idl/*_p.c "$sdk/idl/$arch/"
done
cp "$build"/x64/bin/zvfio.exe "$build"/x64/bin/pcm.dll "$build"/x64/bin/pcm.Fio2007-Config "$sdk/bin/x64/"
cp "$build"/x64/bin/Vantry.exe "$sdk/bin/x64/x86/Vantry.exe"
cp "$build"/x86/bin/Vantry.exe "$sdk/bin/x86/Vantry.exe"
cp "$root"/plugins/sdk/sample/* "$sdk/sample/"
cat >"$sdk/README.txt" <<TXT
Plug-in SDK
include/   the kit: zvplugin_sdk.h (contract helpers), zvplugin_com.h (COM base),
           zvplugin_files.h (file helpers), zvplugin_view.h (a kept view of
           the host's shared buffer)
idl/       the interfaces (.idl), their headers and ids; x64/ and x86/ hold the
           proxy-stub sources of each architecture
bin/x64/   zvfio.exe (with "zvfio validate"), the PCM plug-in, and the
           surrogate in x86\\ as a 64-bit host expects it
bin/x86/   the 32-bit surrogate
sample/    a small reader to start from: see its CMakeLists.txt

Build the sample:
  cmake -S sample -B sample-build -DCMAKE_TOOLCHAIN_FILE=sample/mingw-x86_64.cmake
  cmake --build sample-build
Validate it (under Wine):
  wine bin/x64/zvfio.exe validate --sample FILE.zvs sample-build/zvsample.dll
Kernel functions are found by name in the hosting executable at run time
(ZvSdk_KernelFunction): a plug-in links no import library of the host.
TXT
(cd "$out" && python3 -m zipfile -c sdk.zip sdk)
echo "sdk: $sdk and $out/sdk.zip"
