#!/bin/bash
# Writes the seed files of the stream and cache-map fuzz corpora: gzip files
# made by gzip, zlib and raw deflate data made by python3's zlib, and maps
# written by a real cache (through the harness's TMAIN_FUZZ_SEEDS mode).
# Each stream seed starts with the harness's two option bytes (buffer sizes
# and format; operation seed; see inflate_check.h). Usage: make_seeds.sh <build dir with fuzz_cache_map>
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
gz=$here/corpus/fuzz_gzip_stream
dz=$here/corpus/fuzz_deflate_stream
mkdir -p "$gz" "$dz" "$here/corpus/fuzz_cache_map"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

python3 - "$tmp" <<'PY'
import random, sys
r = random.Random(1)
words = [b"stream ", b"deflate ", b"gzip ", b"member ", b"\n", b"crc ", b"window "]
open(sys.argv[1] + "/text", "wb").write(b"".join(r.choice(words) for _ in range(600)))
open(sys.argv[1] + "/small", "wb").write(b"tail of the second member\n")
open(sys.argv[1] + "/random", "wb").write(bytes(r.randrange(256) for _ in range(1500)))
PY

touch -d @1500000000 "$tmp/text" # gzip -N stores the time
seed() { printf "$2" | cat - "$3" > "$1"; } # seed <file> <option bytes> <data file>
gzip -9 -n -c "$tmp/text" > "$tmp/a.gz"
gzip -1 -N -c "$tmp/text" > "$tmp/named.gz"
gzip -n -c < /dev/null > "$tmp/empty.gz"
gzip -n -c "$tmp/small" > "$tmp/small.gz"
gzip -n -c "$tmp/random" > "$tmp/random.gz"
cat "$tmp/a.gz" "$tmp/empty.gz" "$tmp/small.gz" > "$tmp/members.gz"
# Every optional header field (extra, name, comment, header CRC) before gzip's own body.
{ printf '\x1f\x8b\x08\x1e\x01\x02\x03\x04\x00\x03\x03\x00xyzn.txt\x00hi\x00\xaa\xbb'; tail -c +11 "$tmp/small.gz"; } > "$tmp/fields.gz"
seed "$gz/seed-gzip9" '\x0f\x01' "$tmp/a.gz"
seed "$gz/seed-gzip9-tiny-buffers" '\x00\x02' "$tmp/a.gz"
seed "$gz/seed-named" '\x09\x03' "$tmp/named.gz"
seed "$gz/seed-empty" '\x0f\x04' "$tmp/empty.gz"
seed "$gz/seed-members" '\x05\x05' "$tmp/members.gz"
seed "$gz/seed-fields" '\x0a\x06' "$tmp/fields.gz"
seed "$gz/seed-stored" '\x0e\x07' "$tmp/random.gz"

py() { python3 -c "import zlib,sys; d=open('$1','rb').read(); $2" > "$3"; }
py "$tmp/text" "sys.stdout.buffer.write(zlib.compress(d, 9))" "$tmp/z9"
py "$tmp/text" "sys.stdout.buffer.write(zlib.compress(d, 1))" "$tmp/z1"
py "$tmp/random" "sys.stdout.buffer.write(zlib.compress(d, 0))" "$tmp/z0"
py "$tmp/text" "c=zlib.compressobj(9, zlib.DEFLATED, -15); sys.stdout.buffer.write(c.compress(d)+c.flush())" "$tmp/raw9"
py "$tmp/small" "c=zlib.compressobj(6, zlib.DEFLATED, -15); sys.stdout.buffer.write(c.compress(d)+c.flush())" "$tmp/raw6"
py "$tmp/small" "c=zlib.compressobj(6, zlib.DEFLATED, 15, zdict=b'member'); sys.stdout.buffer.write(c.compress(d)+c.flush())" "$tmp/zdict"
py "$tmp/small" "c=zlib.compressobj(6, zlib.DEFLATED, 9); sys.stdout.buffer.write(c.compress(d)+c.flush())" "$tmp/zwin9"
seed "$dz/seed-zlib9" '\x0f\x01' "$tmp/z9"
seed "$dz/seed-zlib1-tiny-buffers" '\x00\x02' "$tmp/z1"
seed "$dz/seed-zlib-stored" '\x0a\x03' "$tmp/z0"
seed "$dz/seed-raw9" '\x1f\x04' "$tmp/raw9"
seed "$dz/seed-raw6-small-buffers" '\x15\x05' "$tmp/raw6"
seed "$dz/seed-zlib-dictionary" '\x0f\x06' "$tmp/zdict"
seed "$dz/seed-zlib-window9" '\x05\x07' "$tmp/zwin9"

if [ $# -ge 1 ]; then
  TMAIN_FUZZ_SEEDS=$here/corpus/fuzz_cache_map "$1/fuzz_cache_map" -runs=0 "$tmp" >/dev/null 2>&1
fi
ls -l "$gz" "$dz" "$here/corpus/fuzz_cache_map"
