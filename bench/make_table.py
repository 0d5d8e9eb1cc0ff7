#!/usr/bin/env python3
"""Reads Google Benchmark JSON files and prints one table: workload, ours, peer, ratio.

ratio = peer time / our time, from CPU time (the machine is shared: wall time includes waiting).
The X11 rows use real time, since most of their work is in the X server and in xclip.
"""
import glob
import json
import os
import re
import sys

# workload, program, our benchmark, peer benchmark, peer label, goal, use real time
ROWS = [
    ("read a small get request", "bench_reader", r"^get_small/ours", r"^get_small/rapidjson_dom", "RapidJSON DOM", "ratio >= 1", False),
    ("  same, simdjson DOM", "bench_reader", r"^get_small/ours", r"^get_small/simdjson_dom", "simdjson DOM", "", False),
    ("read a set request, one 16 MB string, 1% escapes", "bench_reader", r"^set_16MB_string_1pct_escapes/ours", r"^set_16MB_string_1pct_escapes/rapidjson_dom", "RapidJSON DOM", "ratio >= 2.5", False),
    ("  same, simdjson DOM", "bench_reader", r"^set_16MB_string_1pct_escapes/ours", r"^set_16MB_string_1pct_escapes/simdjson_dom", "simdjson DOM", "", False),
    ("read a set request with 100,000 uri-list paths", "bench_reader", r"^set_uri_list_100000/ours", r"^set_uri_list_100000/rapidjson_dom", "RapidJSON DOM", "ratio >= 1", False),
    ("read a typed int32 array of 1,000,000", "bench_reader", r"^typed_int32_1000000/ours", r"^typed_int32_1000000/rapidjson_dom", "RapidJSON DOM", "ratio >= 1.5", False),
    ("serialize a 16 MB text reply", "bench_serialize", r"^serialize_ours<LargeText>", r"^serialize_rapidjson<LargeText>", "RapidJSON Writer", "ratio >= 2", False),
    ("UTF-8 to UTF-16, 16 MB mostly ASCII", "bench_text", r"^to16_ours/mostly_ascii", r"^to16_utfcpp/mostly_ascii", "utfcpp", "ratio >= 3", False),
    ("  same, iconv", "bench_text", r"^to16_ours/mostly_ascii", r"^to16_iconv/mostly_ascii", "iconv", "ratio >= 3", False),
    ("UTF-16 to UTF-8, 16 MB mostly ASCII", "bench_text", r"^to8_ours/mostly_ascii", r"^to8_utfcpp/mostly_ascii", "utfcpp", "ratio >= 3", False),
    ("  same, iconv", "bench_text", r"^to8_ours/mostly_ascii", r"^to8_iconv/mostly_ascii", "iconv", "ratio >= 3", False),
    ("base64 encode, 32 MB", "bench_codec", r"^BM_Base64Encode_Ours(_median)?$", r"^BM_Base64Encode_OpenSSL(_median)?$", "OpenSSL EVP", "ratio >= 1", False),
    ("base64 decode, 32 MB", "bench_codec", r"^BM_Base64Decode_Ours(_median)?$", r"^BM_Base64Decode_OpenSSL(_median)?$", "OpenSSL EVP", "ratio >= 1", False),
    ("PNG encode, 3840x2160 screenshot", "bench_codec", r"^BM_PngEncode_Ours", r"^BM_PngEncode_SpngLevel1NoFilter", "libspng level 1, no filter", "ratio >= 0.83", False),
    ("  same, libpng default", "bench_codec", r"^BM_PngEncode_Ours", r"^BM_PngEncode_LibpngDefault", "libpng default", "", False),
    ("whole flavors request (memory backend)", "bench_requests", r"^BM_FlavorsRequest", None, "", "under 2 us", False),
    ("whole get request, 16 MB text", "bench_requests", r"^BM_GetText16MB", r"^BM_Memcpy/16777216", "memcpy of 16 MB", "ratio >= 0.1", False),
    ("whole set request, 16 MB text", "bench_requests", r"^BM_SetText16MB", r"^BM_Memcpy/16777216", "memcpy of 16 MB", "", False),
    ("whole get request, 4K PNG", "bench_requests", r"^BM_GetPng4K", r"^BM_Memcpy/16777216", "memcpy of 16 MB", "", False),
    ("X11: read 64 MB", "bench_x11", r"^BM_Read64MiB_Backend", r"^BM_Read64MiB_XclipProcess", "xclip -o", "ratio >= 1", True),
    ("X11: 1 KB read round trip", "bench_x11", r"^BM_RoundTrip1KiB_Backend", r"^BM_RoundTrip1KiB_XclipProcess", "xclip -o", "under 0.5 ms", True),
]

UNIT = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def load(directory):
    results = {}
    for path in glob.glob(os.path.join(directory, "*.json")):
        program = os.path.splitext(os.path.basename(path))[0]
        with open(path) as f:
            data = json.load(f)
        results[program] = [b for b in data.get("benchmarks", [])
                            if b.get("run_type", "iteration") == "iteration"
                            or b.get("aggregate_name") == "median"]
    return results


def seconds(bench, real):
    value = bench["real_time" if real else "cpu_time"]
    return value * UNIT[bench.get("time_unit", "ns")]


def find(results, program, pattern):
    if pattern is None:
        return None
    for bench in results.get(program, []):
        if re.search(pattern, bench["name"]):
            return bench
    return None


def human(t):
    if t is None:
        return "-"
    if t < 1e-6:
        return "%.0f ns" % (t * 1e9)
    if t < 1e-3:
        return "%.2f us" % (t * 1e6)
    if t < 1:
        return "%.2f ms" % (t * 1e3)
    return "%.2f s" % t


def main():
    results = load(sys.argv[1] if len(sys.argv) > 1 else "build/release/bench-results")
    print("| workload | ours | peer | peer time | ratio (peer/ours) | goal |")
    print("|---|---|---|---|---|---|")
    for workload, program, ours, peer, label, goal, real in ROWS:
        our_bench = find(results, program, ours)
        if our_bench is None:
            print("| %s | not run | %s | - | - | %s |" % (workload, label, goal))
            continue
        our_time = seconds(our_bench, real)
        peer_bench = find(results, program, peer)
        peer_time = seconds(peer_bench, real) if peer_bench else None
        ratio = "%.2f" % (peer_time / our_time) if peer_time else "-"
        print("| %s | %s | %s | %s | %s | %s |" % (workload, human(our_time), label or "-",
                                                   human(peer_time), ratio, goal))


if __name__ == "__main__":
    main()
