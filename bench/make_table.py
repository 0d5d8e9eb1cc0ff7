#!/usr/bin/env python3
"""Reads the Google Benchmark JSON files of one scripts/bench run and prints one Markdown table:
workload, ours, peer, ratio, memcpy of the same bytes, and whether the goal is met.

Times are the fastest of the repetitions (noise on a shared machine only ever adds time, to
ours and to the peers alike). CPU time is used (the machine is shared, so wall time
includes waiting for a core), except for the X11 and Wayland rows: most of their work happens in
the X server and xclip, or in the compositor and wl-copy, so they use real time. "peer/ours"
above 1 means we are faster.
Exits with 1 when a row's benchmark is missing from the results.

  make_table.py [--quick] [RESULTS_DIR]   --quick: only the request-sized rows
"""
import glob
import json
import os
import re
import sys

# A goal is (kind, value): ("faster", x): peer/ours >= x; ("under", s): ours under s seconds;
# ("memcpy", x): ours/memcpy under x; ("png", (x, y)): peer/ours >= x and our PNG at most y
# times the size of libpng's default. Peers given as a list: the fastest of them is the peer.
ROWS = [
    # workload, program, ours, peers, peer label, memcpy, goal, real time
    ("read a small get request (about 80 bytes)", "bench_reader", "get_small/ours",
     ["get_small/rapidjson_dom"], "RapidJSON DOM", "get_small/memcpy", ("faster", 1.25), False),
    ("  same, against simdjson DOM", "bench_reader", "get_small/ours",
     ["get_small/simdjson_dom"], "simdjson DOM", "get_small/memcpy", None, False),
    ("  same, against its map built by hand without reading", "bench_reader", "get_small/ours",
     ["get_small/map_by_hand"], "the value model's floor", "get_small/memcpy", None, False),
    ("read a set request, one 16 MB string, 1% escapes", "bench_reader",
     "set_16MB_string_1pct_escapes/ours", ["set_16MB_string_1pct_escapes/rapidjson_dom"],
     "RapidJSON DOM", "set_16MB_string_1pct_escapes/memcpy", ("faster", 2.5), False),
    ("  same, against simdjson DOM", "bench_reader", "set_16MB_string_1pct_escapes/ours",
     ["set_16MB_string_1pct_escapes/simdjson_dom"], "simdjson DOM",
     "set_16MB_string_1pct_escapes/memcpy", None, False),
    ("read a set request with 100,000 uri-list paths", "bench_reader", "set_uri_list_100000/ours",
     ["set_uri_list_100000/rapidjson_dom"], "RapidJSON DOM", "set_uri_list_100000/memcpy",
     ("faster", 1.0), False),
    ("read a typed int32 array of 1,000,000", "bench_reader", "typed_int32_1000000/ours",
     ["typed_int32_1000000/rapidjson_dom"], "RapidJSON DOM", "typed_int32_1000000/memcpy",
     ("faster", 1.5), False),
    ("serialize a reply with 16 MB of text", "bench_serialize", "serialize_ours<LargeText>",
     ["serialize_rapidjson<LargeText>"], "RapidJSON Writer", "copy_memcpy<LargeText>",
     ("faster", 2.0), False),
    ("UTF-16 to UTF-8, 16 MB", "bench_text", "to8_ours/mostly_ascii",
     ["to8_utfcpp/mostly_ascii", "to8_iconv/mostly_ascii"], "better of utfcpp, iconv",
     "copy_memcpy/mostly_ascii", ("faster", 3.0), False),
    ("UTF-8 to UTF-16, 16 MB", "bench_text", "to16_ours/mostly_ascii",
     ["to16_utfcpp/mostly_ascii", "to16_iconv/mostly_ascii"], "better of utfcpp, iconv",
     "copy_memcpy/mostly_ascii", ("faster", 3.0), False),
    ("base64 encode, 32 MB", "bench_codec", "BM_Base64Encode_Ours", ["BM_Base64Encode_OpenSSL"],
     "OpenSSL EVP", "BM_Memcpy", ("faster", 1.0), False),
    ("base64 decode, 32 MB", "bench_codec", "BM_Base64Decode_Ours", ["BM_Base64Decode_OpenSSL"],
     "OpenSSL EVP", "BM_Memcpy", ("faster", 1.0), False),
    ("PNG encode, 3840x2160 screenshot", "bench_codec", "BM_PngEncode_Ours",
     ["BM_PngEncode_SpngLevel1NoFilter"], "libspng level 1, no filter", "BM_MemcpyOfScreenshot",
     ("png", (1 / 1.2, 1.10)), False),
    ("  same, against libpng default", "bench_codec", "BM_PngEncode_Ours",
     ["BM_PngEncode_LibpngDefault"], "libpng default", "BM_MemcpyOfScreenshot", None, False),
    ("JPEG to PNG, 3840x2160 screenshot (a read of image/png)", "bench_codec",
     "BM_JpegToPng_Ours", [], "-", "BM_MemcpyOfScreenshot", None, False),
    ("  of which the JPEG decode", "bench_codec", "BM_JpegDecode_Ours", [], "-",
     "BM_MemcpyOfScreenshot", None, False),
    ("WebP to PNG, 3840x2160 screenshot (a read of image/png)", "bench_codec",
     "BM_WebpToPng_Ours", [], "-", "BM_MemcpyOfScreenshot", None, False),
    ("  of which the WebP decode", "bench_codec", "BM_WebpDecode_Ours", [], "-",
     "BM_MemcpyOfScreenshot", None, False),
    ("whole flavors request, message form, memory backend", "bench_requests", "BM_FlavorsRequest",
     [], "-", None, ("under", 1e-6), False),
    ("whole small get request, message form, text and 16x16 PNG", "bench_requests",
     "BM_GetSmallRequest", [], "-", None, ("under", 3e-6), False),
    ("whole get request, 16 MB text, message form", "bench_requests", "BM_GetText16MB", [], "-",
     "BM_MemcpyOfGetReply", ("memcpy", 10.0), False),
    ("X11: 64 MB read", "bench_x11", "BM_Read64MiB_Backend", ["BM_Read64MiB_XclipProcess"],
     "xclip -o", "BM_Memcpy64MiB", ("faster", 1.0), True),
    ("X11: 1 KB read round trip", "bench_x11", "BM_RoundTrip1KiB_Backend",
     ["BM_RoundTrip1KiB_XclipProcess"], "xclip -o", None, ("under", 0.5e-3), True),
    ("Wayland: 64 MB read", "bench_wayland", "BM_Read64MiB_Backend",
     ["BM_Read64MiB_WlPasteProcess"], "wl-paste", "BM_Memcpy64MiB", ("faster", 1.0), True),
    ("Wayland: 1 KB read round trip", "bench_wayland", "BM_RoundTrip1KiB_Backend",
     ["BM_RoundTrip1KiB_WlPasteProcess"], "wl-paste", None, ("faster", 1.0), True),
    # "name@counter" takes a latency counter (microseconds) instead of the benchmark's time.
    ("WebSocket: small get round trip, p50", "bench_websocket", "BM_SmallGet_WebSocket@p50_us",
     ["BM_SmallGet_Pipe@p50_us"], "same on the pipe", None, ("faster", 0.5), True),
    ("WebSocket: small get round trip, p99", "bench_websocket", "BM_SmallGet_WebSocket@p99_us",
     ["BM_SmallGet_Pipe@p99_us"], "same on the pipe", None, None, True),
    ("WebSocket: set to another connection's notification, p50", "bench_websocket",
     "BM_Notification_WebSocket@p50_us", [], "-", None, None, True),
    ("WebSocket: set to another connection's notification, p99", "bench_websocket",
     "BM_Notification_WebSocket@p99_us", [], "-", None, ("under", 5e-3), True),
    ("WebSocket: get of 16 MiB text", "bench_websocket", "BM_Get16MiB_WebSocket",
     ["BM_Get16MiB_Pipe"], "same on the pipe", None, ("faster", 1 / 1.3), True),
]

# The rows of scripts/bench --quick: requests of about a hundred bytes.
QUICK = {"get_small/ours", "BM_FlavorsRequest", "BM_GetSmallRequest"}

UNIT = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def base_name(bench):
    """The benchmark's name without the suffixes that options and aggregates add."""
    name = bench.get("run_name", bench["name"])
    return re.sub(r"(/min_time:[0-9.]+|/real_time|/manual_time|/iterations:[0-9]+|/repeats:[0-9]+)+$", "",
                  name)


def load(directory):
    """program -> {benchmark name -> its runs}: every repetition, or the median where a file
    holds only aggregates."""
    results = {}
    for path in glob.glob(os.path.join(directory, "*.json")):
        program = os.path.splitext(os.path.basename(path))[0]
        with open(path) as f:
            data = json.load(f)
        repetitions = {}
        medians = {}
        for bench in data.get("benchmarks", []):
            if bench.get("error_occurred"):
                continue
            name = base_name(bench)
            # Reader benchmarks carry their workload index as a last path element.
            name = re.sub(r"/[0-9]+$", "", name)
            if bench.get("run_type") != "aggregate":
                repetitions.setdefault(name, []).append(bench)
            elif bench.get("aggregate_name") == "median":
                medians[name] = [bench]
        results[program] = {**medians, **repetitions}
    return results


def seconds(runs, real, counter=None):
    """The fastest of the runs: on a shared machine noise only ever adds time. A counter is
    in microseconds."""
    if counter:
        return min(run[counter] * 1e-6 for run in runs)
    key = "real_time" if real else "cpu_time"
    return min(run[key] * UNIT[run.get("time_unit", "ns")] for run in runs)


def lookup(runs, name, real):
    """The time of benchmark `name`, or of its counter for "name@counter"; None when not run."""
    bench, _, counter = name.partition("@")
    if bench not in runs or (counter and counter not in runs[bench][0]):
        return None
    return seconds(runs[bench], real, counter)


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


def describe(goal):
    kind, value = goal
    if kind == "faster":
        return "peer/ours >= %.3g" % value
    if kind == "under":
        return "under %s" % human(value)
    if kind == "memcpy":
        return "ours/memcpy < %g" % value
    return "peer/ours >= %.2f, size <= %.2fx libpng" % value


def met(goal, ours, peer, memcpy, our_bench):
    kind, value = goal
    if kind == "faster":
        return peer is not None and peer / ours >= value
    if kind == "under":
        return ours < value
    if kind == "memcpy":
        return memcpy is not None and ours / memcpy < value
    speed, size = value
    return (peer is not None and peer / ours >= speed
            and our_bench.get("size_vs_libpng", float("inf")) <= size)


def main():
    args = sys.argv[1:]
    quick = "--quick" in args
    args = [a for a in args if a != "--quick"]
    results = load(args[0] if args else "build/release/bench-results")
    missing = False
    print("| workload | ours | peer | peer time | peer/ours | memcpy | ours/memcpy | goal | met |")
    print("|---|---|---|---|---|---|---|---|---|")
    for workload, program, ours, peers, label, memcpy, goal, real in ROWS:
        if quick and ours not in QUICK:
            continue
        runs = results.get(program, {})
        our_runs = runs.get(ours.partition("@")[0])
        if our_runs is None or lookup(runs, ours, real) is None:
            missing = True
            print("| %s | not run | %s | | | | | %s | |" % (workload, label,
                                                          describe(goal) if goal else ""))
            continue
        our_bench = our_runs[0]  # counters are the same in every repetition
        our_time = lookup(runs, ours, real)
        peer_times = [t for t in (lookup(runs, p, real) for p in peers) if t is not None]
        peer_time = min(peer_times) if peer_times else None
        memcpy_time = seconds(runs[memcpy], real) if memcpy in runs else None
        cells = [
            workload, human(our_time), label, human(peer_time),
            "%.2f" % (peer_time / our_time) if peer_time else "-", human(memcpy_time),
            "%.1f" % (our_time / memcpy_time) if memcpy_time else "-",
            describe(goal) if goal else "",
            ("yes" if met(goal, our_time, peer_time, memcpy_time, our_bench) else "**no**")
            if goal else ""
        ]
        if "size_vs_libpng" in our_bench:
            cells[1] += " (%.2f MB, %.2fx libpng's size)" % (our_bench["png_bytes"] / 1e6,
                                                             our_bench["size_vs_libpng"])
        print("| " + " | ".join(cells) + " |")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
