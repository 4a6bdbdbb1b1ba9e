#!/bin/bash
# Builds the libFuzzer target of the LDP parsers, and the program that writes
# its seed PDUs, with clang's fuzzer, address and undefined-behaviour
# sanitizers. Usage: fuzz/build.sh [OUTDIR] (default fuzz-build/ at the top of
# the repository). Run the fuzzer on a copy of the corpus, for example:
#   mkdir -p /tmp/work && cp fuzz/corpus/* /tmp/work/
#   nice -n 10 fuzz-build/wire_fuzz -dict=fuzz/ldp.dict -max_len=1024 -max_total_time=600 \
#      -jobs=1 /tmp/work
# and keep the corpus small, by edge coverage, with the seeds written first:
#   mkdir /tmp/min && fuzz-build/make_seeds /tmp/min
#   fuzz-build/wire_fuzz -merge=1 -use_counters=0 /tmp/min /tmp/work && cp /tmp/min/* fuzz/corpus/
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
echo "built $OUT/wire_fuzz and $OUT/make_seeds"
