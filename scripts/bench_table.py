#!/usr/bin/env python3
"""Reads the JSON outputs of the benchmark programs and prints one table of ratios.

Each row names the benchmarks it compares (by the names the programs print), so figures change as
the programs and the code change; nothing here is a measured number. A row whose benchmarks are
missing from the outputs (a program that failed, a path the CPU lacks) says so instead of a figure.

Usage: bench_table.py [--json] RESULTS_DIR
"""
import json
import os
import re
import sys

PATHS = ["plain", "avx2", "avx512"]
SETS = ["ascii", "latin1", "punctuation", "cjk", "emoji"]


def rows():
    """(work, program, tqkit benchmark, baseline benchmark or None, measure, target)

    measure: 'speedup'  ratio = baseline time / tqkit time, target '>= x'
             'overhead' ratio = tqkit time / baseline time, target '<= x'
             'per_object' ratio = (tqkit time / its `objects` counter) / (baseline time / its `objects`)
             'per_byte'  the same by each benchmark's `bytes` counter (its document's size)
             'ns', 'ms'  tqkit's own time, target '<= x' or '< x'
             'counter:NAME' a counter of the tqkit benchmark, target '<= x' or '< x'
             'processes' one benchmark that ran tqkit and a peer alternately as processes: its
                        counters tqkit_us and peer_us (medians of CPU time), ratio = their quotient
    """
    r = []
    for path, target in (("avx2", ">= 6"), ("avx512", ">= 10"), ("plain", "")):
        r.append((f"reduce whitespace, {path} path vs plain loop", "string_bench",
                  f"stringByReducingWhitespaces/tqkit/{path}", "stringByReducingWhitespaces/plain_loop",
                  "speedup", target))
    for path in PATHS:
        r.append((f"reduce whitespace, first call, {path} path", "string_bench",
                  f"stringByReducingWhitespaces/first_call/tqkit/{path}",
                  "stringByReducingWhitespaces/first_call/plain_loop", "speedup", ""))
    for s in SETS:
        for path in PATHS:
            r.append((f"substitution, {s} set, {path} path vs plain loop", "string_bench",
                      f"stringWithSubstitute/{s}/tqkit/{path}", f"stringWithSubstitute/{s}/plain_loop",
                      "speedup", "" if path == "plain" else ">= 2"))
    for path in PATHS:
        r.append((f"line breaks, {path} path vs plain loop", "string_bench",
                  f"stringByRemovingLineBreaks/tqkit/{path}", "stringByRemovingLineBreaks/plain_loop", "speedup", ""))
        r.append((f"surrounding whitespace, {path} path vs plain loop", "string_bench",
                  f"stringByRemovingSurroundingWhitespace/tqkit/{path}",
                  "stringByRemovingSurroundingWhitespace/plain_loop", "speedup", ""))
    r += [
        ("hex encode 64 MiB, first call in a fresh process vs plain loop", "data_bench",
         "encode/64MiB/first_call/tqkit", "encode/64MiB/first_call/plain", "speedup", ">= 1.5"),
        ("  the new 256 MiB's page faults alone (a write per page, one thread), vs the plain loop", "data_bench",
         "encode/64MiB/first_call/fault_floor", "encode/64MiB/first_call/plain", "speedup", ""),
        ("hex encode 64 MiB, steady vs plain loop", "data_bench", "encode/64MiB/tqkit", "encode/64MiB/plain",
         "speedup", ""),
        ("hex encode 1 MiB vs plain loop", "data_bench", "encode/1MiB/tqkit", "encode/1MiB/plain", "speedup", ">= 15"),
        ("hex encode 1 MiB vs memcpy of the output", "data_bench", "encode/1MiB/tqkit", "encode/1MiB/memcpy",
         "speedup", ">= 0.6"),
        ("hex decode dense 1 MiB vs plain loop", "data_bench", "decode/dense/1MiB/tqkit", "decode/dense/1MiB/plain",
         "speedup", ">= 8"),
        ("hex decode spaced 1 MiB vs plain loop", "data_bench", "decode/spaced/1MiB/tqkit",
         "decode/spaced/1MiB/plain", "speedup", ">= 2.5"),
        ("sha1 64 B vs SHA1()", "data_bench", "sha1/64B/tqkit", "sha1/64B/SHA1", "speedup", ">= 1"),
        ("sha1 4 KiB vs SHA1()", "data_bench", "sha1/4KiB/tqkit", "sha1/4KiB/SHA1", "speedup", ">= 0.95"),
        ("sha1 1 MiB vs SHA1()", "data_bench", "sha1/1MiB/tqkit", "sha1/1MiB/SHA1", "speedup", ">= 0.95"),
        ("byte search m=8 vs naive", "data_bench", "search/random/m=8/tqkit", "search/random/m=8/naive",
         "speedup", ">= 7"),
        ("byte search m=32 vs memmem", "data_bench", "search/random/m=32/tqkit", "search/random/m=32/memmem",
         "speedup", ">= 1"),
        ("byte search m=256 vs memmem", "data_bench", "search/random/m=256/tqkit", "search/random/m=256/memmem",
         "speedup", ">= 1"),
        ("posting a notification to one observer (ns)", "network_bench", "BM_NotificationPostOneObserver", None,
         "ns", "<= 100"),
        ("  the same, name written as a literal (ns)", "network_bench", "BM_NotificationPostOneObserver_LiteralName",
         None, "ns", ""),
        ("store change to observer vs bare GLib idle", "network_bench", "BM_StoreChangeDelivered",
         "BM_StoreChange_Baseline_GLibIdle", "overhead", ""),
        ("store toggle to notification, p50 vs bare socket", "store_bench", "BM_ToggleToNotification", None,
         "counter:p50_ratio", "<= 3"),
        ("store toggle to notification, p99 (us)", "store_bench", "BM_ToggleToNotification", None,
         "counter:store_p99_us", "< 2000"),
        ("store carrier change during a 20,000-address flood, p99 (us)", "store_bench", "BM_CarrierDuringFlood",
         None, "counter:store_p99_us", "<= 10000"),
        ("  the same, bare socket p99 (us)", "store_bench", "BM_CarrierDuringFlood", None,
         "counter:bare_p99_us", ""),
    ]
    for arg, watched in (("0", "nothing watched"), ("1", "everything watched")):
        r += [
            (f"store full read vs the bare kernel dumps, {watched}", "store_bench", f"BM_FullRead/{arg}",
             "BM_FullRead_BareDumps", "overhead", "<= 2"),
            (f"store full read (ms), {watched}", "store_bench", f"BM_FullRead/{arg}", None, "ms", "< 35"),
            (f"store full read, first call vs the bare kernel dumps, {watched}", "store_bench",
             f"BM_FullRead_FirstCall/{arg}", "BM_FullRead_BareDumps", "overhead", "<= 2"),
        ]
    r += [
        ("media of 1,001 links: ethtool netlink dumps vs a socket and ioctls per link", "store_bench",
         "BM_MediaOfEach/0", "BM_MediaOfEach_PerLink", "overhead", ""),
        ("  the same over the ioctl on one socket (kernels without ethtool netlink)", "store_bench",
         "BM_MediaOfEach/1", "BM_MediaOfEach_PerLink", "overhead", ""),
        ("tqkit net status --json vs ip -j addr, 1,000 links / 10,000 addresses (processes, CPU time)",
         "store_bench", "BM_NetStatusProcess", None, "processes", "<= 0.5"),
    ]
    r += [
        ("interface read vs bare pugixml parse (.xib)", "ui_bench", "BM_NibRead", "BM_PugixmlParse", "overhead",
         "<= 3"),
        ("  the read's own allocations replayed alone vs the same parse", "ui_bench", "BM_NibReadAllocations",
         "BM_PugixmlParse", "overhead", ""),
        ("  the parse and those allocations together (a reader doing nothing else) vs the parse", "ui_bench",
         "BM_NibReadFloor", "BM_PugixmlParse", "overhead", ""),
        ("  the parse and one walk of its tree, every name and value touched once, vs the parse", "ui_bench",
         "BM_NibReadWalkFloor", "BM_PugixmlParse", "overhead", ""),
        ("  the parse, that walk and the read's allocations (the floor of a reader on this parser)", "ui_bench",
         "BM_NibReadWalkAndAllocationsFloor", "BM_PugixmlParse", "overhead", ""),
        ("interface read vs bare pugixml parse (older XML archive)", "ui_bench", "BM_XMLArchiveRead",
         "BM_PugixmlParseXMLArchive", "overhead", ""),
        ("older XML archive vs .xib, time per interface object", "ui_bench", "BM_XMLArchiveRead", "BM_NibRead",
         "per_object", "<= 1.5"),
        ("  the older archive's bare parse per object vs the .xib read per object", "ui_bench",
         "BM_PugixmlParseXMLArchive", "BM_NibRead", "per_object", ""),
        ("  older XML archive read vs .xib read, per byte", "ui_bench", "BM_XMLArchiveRead", "BM_NibRead", "per_byte",
         ""),
        ("compiled keyed archive read vs bare libplist parse", "ui_bench", "BM_KeyedArchiveRead", "BM_LibplistParse",
         "overhead", "<= 2"),
        ("NIBArchive read vs reading its tables", "ui_bench", "BM_NIBArchiveRead", "BM_NIBArchiveTables",
         "overhead", "<= 3"),
        ("  the read's own allocations replayed alone vs reading its tables", "ui_bench",
         "BM_NIBArchiveReadAllocations", "BM_NIBArchiveTables", "overhead", ""),
        ("localizing vs the same bare table lookups", "interface_bench", "BM_LocalizePrefsWindow_tqkit",
         "BM_LocalizePrefsWindow_bareLookups", "overhead", "<= 3"),
        ("  first pass on fresh objects vs the same bare lookups", "interface_bench",
         "BM_LocalizePrefsWindow_firstPass", "BM_LocalizePrefsWindow_bareLookups", "overhead", ""),
        ("  first pass vs its floor (lookups + shaping the titles it must measure)", "interface_bench",
         "BM_LocalizePrefsWindow_firstPass", "BM_LocalizePrefsWindow_firstPassFloor", "overhead", ""),
        ("short strings from UTF-8 vs malloc + widen + free", "values_bench", "BM_ShortStrings_tqkit",
         "BM_ShortStrings_floor", "overhead", ""),
        ("string copies vs shared_ptr copies", "values_bench", "BM_StringCopies_tqkit", "BM_StringCopies_sharedPtr",
         "overhead", ""),
        ("small dictionary built and looked up vs unordered_map", "values_bench", "BM_Dictionary_tqkit",
         "BM_Dictionary_unorderedMap", "overhead", ""),
        ("allocations per cell draw, text cell", "interface_bench", "BM_DrawCells_TQTextFieldCell", None,
         "counter:allocs_per_cell", "<= 2"),
        ("allocations per cell draw, image cell", "interface_bench", "BM_DrawCells_TQImageAndTextCell", None,
         "counter:allocs_per_cell", "<= 2"),
        ("presenting a corpus window live vs GtkBuilder, the same widgets (median of turns)", "gtk_bench",
         "BM_PresentMainWindow_alternating", None, "counter:ratio", "<= 1.0"),
        ("  each alone, one run after the other", "gtk_bench", "BM_PresentMainWindow_tqkit",
         "BM_PresentMainWindow_gtkbuilder", "overhead", ""),
        # Peers: the libraries a desktop developer would pick instead, same input, same run.
        ("reduce whitespace, 1 MiB UTF-16, vs Qt 6 QString::simplified", "peers_bench", "simplified/1MiB/tqkit",
         "simplified/1MiB/Qt", "overhead", ""),
        ("hex encode 1 MiB vs Qt 6 QByteArray::toHex", "peers_bench", "toHex/1MiB/tqkit", "toHex/1MiB/Qt",
         "overhead", ""),
        ("hex decode 1 MiB vs Qt 6 QByteArray::fromHex", "peers_bench", "fromHex/1MiB/tqkit", "fromHex/1MiB/Qt",
         "overhead", ""),
    ]
    for form, label in (("xib", ".xib"), ("xml_archive", "older XML archive"),
                        ("keyed_archive", "compiled keyed archive"), ("nib_archive", "NIBArchive")):
        r.append((f"interface read ({label}) vs GtkBuilder building as many widgets", "peers_bench",
                  f"{form}/tqkit", f"{form}/GtkBuilder", "overhead", ""))
    # Peers as whole processes (CPU time from exec to exit): the tools a user would run instead.
    r += [
        ("tqkit hex, empty file, vs xxd -p (start-up)", "command_bench", "start/hex_empty/vs_xxd", None,
         "processes", "<= 1.5"),
        ("  the same vs basenc --base16 -w0", "command_bench", "start/hex_empty/vs_basenc", None, "processes", ""),
        ("tqkit sha1, empty file, vs sha1sum", "command_bench", "start/sha1_empty/vs_sha1sum", None, "processes", ""),
        ("tqkit hex 1 MiB vs basenc --base16 -w0", "command_bench", "1MiB/hex/vs_basenc", None, "processes",
         "<= 1"),
        ("tqkit sha1 1 MiB vs sha1sum", "command_bench", "1MiB/sha1/vs_sha1sum", None, "processes", "<= 1"),
        ("tqkit find 1 MiB vs grep -F -a -b -m1", "command_bench", "1MiB/find/vs_grep", None, "processes", "<= 1"),
        ("tqkit find 64 MiB text, needle at the end, vs grep -F -a -b -m1", "command_bench",
         "64MiB/find_text/vs_grep", None, "processes", "<= 1"),
        ("tqkit find 64 MiB binary, needle at the end, vs grep -F -a -b -m1", "command_bench",
         "64MiB/find_binary/vs_grep", None, "processes", "<= 1"),
    ]
    return r


UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def load(results_dir):
    """program -> list of benchmark records, plus each program's context."""
    runs, contexts = {}, {}
    for name in sorted(os.listdir(results_dir)):
        if not name.endswith(".json"):
            continue
        program = name[:-5]
        try:
            with open(os.path.join(results_dir, name)) as f:
                data = json.load(f)
        except (OSError, ValueError):
            continue
        runs[program] = [b for b in data.get("benchmarks", []) if b.get("run_type", "iteration") == "iteration"]
        contexts[program] = data.get("context", {})
    return runs, contexts


def find(runs, program, name, errors=False):
    """The records of `program` whose name is `name` or `name` followed by '/...' (args, options);
    with errors=True, those that reported an error instead."""
    pattern = re.compile("^" + re.escape(name) + "(/|$)")
    return [b for b in runs.get(program, [])
            if pattern.match(b.get("name", "")) and bool(b.get("error_occurred")) == errors]


def time_ns(record):
    """The best first-call time (wall clock, one fresh process each) when the benchmark reports one;
    else the CPU time per iteration, which other work on a shared machine disturbs less than the
    wall clock does (page faults and system calls count: they run on the measuring thread)."""
    if "best_ms" in record:
        return record["best_ms"] * 1e6
    return record["cpu_time"] * UNIT_NS.get(record.get("time_unit", "ns"), 1.0)


def met(value, target):
    if not target:
        return ""
    op, bound = target.split()
    bound = float(bound)
    ok = {">=": value >= bound, "<=": value <= bound, "<": value < bound, ">": value > bound}[op]
    return "yes" if ok else "NO"


def fmt_time(ns):
    if ns >= 1e6:
        return f"{ns / 1e6:.2f} ms"
    if ns >= 1e3:
        return f"{ns / 1e3:.1f} us"
    return f"{ns:.0f} ns"


CORPUS_ABSENT = "corpus absent"


def build(results_dir):
    """The table's rows, and how many rows were left out for want of the corpus."""
    runs, _ = load(results_dir)
    table = []
    corpus_absent = 0
    for work, program, tq_name, base_name, measure, target in rows():
        row = {"work": work, "tqkit": "", "baseline": "", "ratio": "", "target": target, "met": ""}
        tq = find(runs, program, tq_name)
        base = find(runs, program, base_name) if base_name else []
        if program not in runs:
            row["met"] = "no output" if target else ""
            row["tqkit"] = f"({program} gave no output)"
        elif not tq or (base_name and not base):
            failed = find(runs, program, tq_name, True) + (find(runs, program, base_name, True) if base_name else [])
            message = failed[0].get("error_message", "?") if failed else ""
            if message == CORPUS_ABSENT:
                corpus_absent += 1
                continue
            if message.startswith("skipped: "):
                row["tqkit"] = "(" + message + ")"
            elif failed:
                row["tqkit"] = "(error: " + message[:60] + ")"
                row["met"] = "error" if target else ""
            else:
                row["tqkit"] = "(not measured here)"
        elif measure == "processes":
            record = tq[-1]
            if "tqkit_us" not in record or "peer_us" not in record:
                row["tqkit"] = "(no process times)"
            else:
                t, b = record["tqkit_us"] * 1e3, record["peer_us"] * 1e3
                value = t / b
                row.update(tqkit=fmt_time(t), baseline=fmt_time(b), ratio=f"{value:.2f}x",
                           target=(target + "x") if target else "", met=met(value, target))
        elif measure in ("speedup", "overhead"):
            # Several records (one per argument): the last, the largest size by convention.
            t, b = time_ns(tq[-1]), time_ns(base[-1])
            value = b / t if measure == "speedup" else t / b
            row.update(tqkit=fmt_time(t), baseline=fmt_time(b), ratio=f"{value:.2f}x",
                       target=(target + "x") if target else "", met=met(value, target))
        elif measure in ("per_object", "per_byte"):
            # Each record's own size: the interface objects made from its document, or its bytes.
            counter = "objects" if measure == "per_object" else "bytes"
            t, b = tq[-1], base[-1]
            if not t.get(counter) or not b.get(counter):
                row["tqkit"] = f"(no counter {counter})"
            else:
                tn, bn = time_ns(t) / t[counter], time_ns(b) / b[counter]
                value = tn / bn
                unit = "object" if measure == "per_object" else "byte"
                shown = fmt_time if measure == "per_object" else (lambda ns: f"{ns:.2f} ns")
                row.update(tqkit=f"{shown(tn)}/{unit}", baseline=f"{shown(bn)}/{unit}", ratio=f"{value:.2f}x",
                           target=(target + "x") if target else "", met=met(value, target))
        elif measure in ("ns", "ms"):
            t = time_ns(tq[-1])
            value = t if measure == "ns" else t / 1e6
            row.update(tqkit=fmt_time(t), ratio=f"{value:.3g} {measure}",
                       target=(target + " " + measure) if target else "", met=met(value, target))
        elif measure.startswith("counter:"):
            counter = measure.split(":", 1)[1]
            values = [r[counter] for r in tq if counter in r]
            if not values:
                row["tqkit"] = f"(no counter {counter})"
            else:
                value = max(values)  # the worst of the sizes measured
                row.update(tqkit=f"{counter} {value:.3g}", ratio=f"{value:.3g}", met=met(value, target))
        table.append(row)
    return table, corpus_absent


def main(argv):
    as_json = "--json" in argv
    args = [a for a in argv if not a.startswith("--")]
    if "--help" in argv or len(args) != 1:
        print(__doc__.strip())
        return 0 if "--help" in argv else 2
    table, corpus_absent = build(args[0])
    note = f"corpus absent: {corpus_absent} interface rows not measured (set TQ_CORPUS_DIR to the shared corpus)"
    if as_json:
        if corpus_absent:
            table.append({"work": note, "tqkit": "", "baseline": "", "ratio": "", "target": "", "met": ""})
        json.dump(table, sys.stdout, indent=1)
        print()
        return 0
    cols = ["work", "tqkit", "baseline", "ratio", "target", "met"]
    heads = {"work": "work", "tqkit": "tqkit", "baseline": "baseline", "ratio": "ratio", "target": "target",
             "met": "met?"}
    width = {c: max(len(heads[c]), *(len(str(r[c])) for r in table)) for c in cols}
    line = "| " + " | ".join(heads[c].ljust(width[c]) for c in cols) + " |"
    print(line)
    print("|" + "|".join("-" * (width[c] + 2) for c in cols) + "|")
    for r in table:
        print("| " + " | ".join(str(r[c]).ljust(width[c]) for c in cols) + " |")
    if corpus_absent:
        print(note)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
