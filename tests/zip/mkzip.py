# python3 mkzip.py --tree METHOD [stream] OUT: the current directory by zipfile ("stream": to stdout, with
# data descriptors). python3 mkzip.py DESCRIPTION.json OUT: an archive that may lie, written byte by byte.
# Entry keys: name, text | zeros (count), method (0/8), crc/usize/csize (written instead of the true values),
# huge (a Zip64 size in the directory record), same_data_as (index of the entry whose local header the
# directory record points at). Top-level keys: count (entries in the end record), truncate (bytes cut off).
import json, os, struct, sys, zipfile, zlib

if sys.argv[1] == "--tree":
    m = getattr(zipfile, sys.argv[2])
    with zipfile.ZipFile(sys.stdout.buffer if "stream" in sys.argv else sys.argv[-1], "w", m) as z:
        for p in sorted(os.path.join(d, f)[2:] for d, _, fs in os.walk(".") for f in fs):
            i = zipfile.ZipInfo.from_file(p)
            i.compress_type = m
            with z.open(i, "w") as w:
                w.write(open(p, "rb").read())
    sys.exit(0)
desc = json.load(open(sys.argv[1]))
out, central = bytearray(), bytearray()
offsets = []
for e in desc["entries"]:
    name = e["name"].encode()
    n, data = e.get("zeros"), None if "zeros" in e else e.get("text", "").encode()
    method = e.get("method", 8)
    crc, usize, comp = 0, 0, zlib.compressobj(1, zlib.DEFLATED, -15)
    parts = []
    chunks = ([bytes(1 << 20)] * (n >> 20) + [bytes(n & ((1 << 20) - 1))]) if data is None else [data]
    for c in chunks:
        crc, usize = zlib.crc32(c, crc), usize + len(c)
        parts.append(comp.compress(c) if method == 8 else c)
    if method == 8:
        parts.append(comp.flush())
    body = b"".join(parts)
    crc, csize = e.get("crc", crc), e.get("csize", len(body))
    usize = e.get("usize", usize)
    extra = b""
    if "huge" in e:
        usize = csize = 0xFFFFFFFF
        extra = struct.pack("<HHQQ", 1, 16, e["huge"], e["huge"])
    if "same_data_as" in e:
        offset = offsets[e["same_data_as"]]
    else:
        offset = len(out)
        out += struct.pack("<IHHHHHIIIHH", 0x04034B50, 20, 0, method, 0, 0x21, crc, min(csize, 0xFFFFFFFF),
                           min(usize, 0xFFFFFFFF), len(name), 0) + name + body
    offsets.append(offset)
    central += struct.pack("<IHHHHHHIIIHHHHHII", 0x02014B50, 20, 20, 0, method, 0, 0x21, crc,
                           min(csize, 0xFFFFFFFF), min(usize, 0xFFFFFFFF), len(name), len(extra), 0, 0, 0,
                           0, offset) + name + extra
count = desc.get("count", len(desc["entries"]))
start = len(out)
out += central + struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, count, count, len(central), start, 0)
open(sys.argv[2], "wb").write(out[: len(out) - desc.get("truncate", 0)])
