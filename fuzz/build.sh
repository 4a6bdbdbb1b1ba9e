#!/bin/bash
# Builds the fuzz targets with clang's libFuzzer and the address and
# undefined-behaviour sanitizers (apt-get install -y clang libclang-rt-14-dev):
#
#  - wire_fuzz: arbitrary bytes through every LDP parser, and make_seeds, the
#    program that writes its seed PDUs;
#  - session_fuzz: an agent driven on virtual time through the simulated
#    network by a peer played from the input (fuzz/SessionDrive.cc), built
#    with the whole agent under CMake in OUTDIR/session.
#
# Usage: fuzz/build.sh [OUTDIR] (default fuzz-build/ at the top of the
# repository). Run a fuzzer on a copy of its corpus, for example:
#   mkdir -p /tmp/work && cp fuzz/corpus/* /tmp/work/
#   nice -n 10 fuzz-build/wire_fuzz -dict=fuzz/ldp.dict -max_len=1024 -max_total_time=600 \
#      -jobs=1 /tmp/work
#   mkdir -p /tmp/swork && cp fuzz/session_corpus/* /tmp/swork/
#   nice -n 10 fuzz-build/session_fuzz -max_len=512 -max_total_time=600 /tmp/swork
# and keep a corpus small, by edge coverage, with the seeds written first:
#   mkdir /tmp/min && fuzz-build/make_seeds /tmp/min
#   fuzz-build/wire_fuzz -merge=1 -use_counters=0 /tmp/min /tmp/work && cp /tmp/min/* fuzz/corpus/
#   mkdir /tmp/smin && fuzz-build/session_fuzz -merge=1 -use_counters=0 /tmp/smin /tmp/swork
#   rm fuzz/session_corpus/* && cp /tmp/smin/* fuzz/session_corpus/
# Both corpora are replayed by the tests (tests/wire, tests/sim).
set -euo pipefail
cd "$(dirname "$0")/.."
OUT=${1:-fuzz-build}
mkdir -p "$OUT"
CXX=${CXX:-clang++}
SRCS=(runtime/vek/Exception.cc runtime/vek/Trace.cc runtime/vek/Activity.cc
      runtime/nolu/Types.cc runtime/nolu/Hdr.cc runtime/nolu/Pkt.cc
      entities/Enums.cc entities/Identifiers.cc entities/Pseudowire.cc
      wire/LdpParser.cc wire/LdpMsgGen.cc wire/LdpPduEtherFrameParser.cc)
FLAGS=(-std=c++20 -g -O1 -fno-omit-frame-pointer -I.)
"$CXX" "${FLAGS[@]}" -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
   "${SRCS[@]}" fuzz/wire_fuzz.cc -o "$OUT/wire_fuzz"
"$CXX" "${FLAGS[@]}" -fsanitize=address,undefined "${SRCS[@]}" fuzz/make_seeds.cc \
   -o "$OUT/make_seeds"
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
LAUNCHER=()
command -v ccache > /dev/null && LAUNCHER=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$OUT/session" -G Ninja -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
   -DLDP_FUZZ=ON -DLDP_SANITIZE=ON -DLDP_BENCH=OFF "${LAUNCHER[@]}" > /dev/null
cmake --build "$OUT/session" -j2 --target session_fuzz
cp "$OUT/session/fuzz/session_fuzz" "$OUT/session_fuzz"
echo "built $OUT/wire_fuzz, $OUT/make_seeds and $OUT/session_fuzz"
