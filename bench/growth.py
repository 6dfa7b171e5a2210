#!/usr/bin/env python3
"""How cost grows: whole processes of the tool, each in turn with its peer, against the number of files and of records.

Usage: growth.py TOOL REPORT-DIRECTORY [LARGEST-TREE [ROUNDS]]

Writes report.md with a table of all ratios, and plots (SVG, by gnuplot). Needs root, and runs in a private mount
namespace; the trees lie in $ZORV_BENCH_DIR, or in /var/tmp.
"""

import os
import re
import shutil
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

RECORDS = (0, 100, 1_000, 10_000, 100_000)
QUICK = ("set", "get", "getfattr")


class Bench:
    def __init__(self, tool, report, work):
        self.tool, self.report, self.work = tool, report, work
        self.figures = {}  # by name and size: runs of (seconds, kilobytes)

    def run(self, name, size, command):
        # The peak that the system tells of a child begins with the memory of its parent, so a small program stands
        # between, but where it would take up much of the time.
        memory = self.work / "memory"
        is_measured = size >= 1_000 and name not in QUICK
        words = ["/usr/bin/time", "-o", memory, "-f", "%M", *command] if is_measured else command
        with open(self.work / "output", "wb") as output:
            begin = time.perf_counter()
            process = subprocess.run(words, stdout=output, stderr=subprocess.DEVNULL, check=False)
            seconds = time.perf_counter() - begin
        if process.returncode != 0:
            sys.exit(f"{name}: {' '.join(map(str, command))} ended with {process.returncode}")
        self.figures.setdefault((name, size), []).append((seconds, int(memory.read_text()) if is_measured else 0))

    def ours(self, name, size, *words):
        self.run(name, size, [self.tool, *words])

    def seconds(self, name, size):
        return statistics.median(run[0] for run in self.figures[name, size])

    def memory(self, name, size):
        return max(run[1] for run in self.figures[name, size])

    def sizes(self, name):
        return sorted(size for figure, size in self.figures if figure == name)


def make_tree(root, files):
    """Files spread evenly over 2,100 directories (fewer where there are fewer files)."""
    shutil.rmtree(root, ignore_errors=True)
    outer = min(100, max(1, files // 1000))
    for directory in range(outer * 20):
        path = root / f"d{directory % outer}" / f"e{directory // outer}"
        path.mkdir(parents=True)
        for number in range(directory, files, outer * 20):
            os.close(os.open(path / f"file{number}", os.O_CREAT | os.O_WRONLY, 0o644))


def measure_files(bench, files, rounds):
    ours, theirs = bench.work / "ours", bench.work / "theirs"
    contexts = bench.work / "contexts"
    contexts.write_text("/.* system_u:object_r:default_t:s0\n/.*/e1/.* system_u:object_r:etc_t:s0\n")
    pattern = f"{ours}/*"
    show_peer = ["getfattr", "-R", "-h", "-m", "security.zorv", "-d", "-e", "hex", ours]
    set_peer = ["find", theirs, "-exec", "setfattr", "-h", "-n", "user.label", "-v", "1", "{}", "+"]
    for _ in range(rounds):
        make_tree(ours, files)
        make_tree(theirs, files)
        os.sync()
        bench.ours("first pass", files, "-a", "-s", ours)
        bench.run("setfiles, first", files, ["setfiles", "-T", "0", "-F", contexts, theirs])
        bench.ours("second pass", files, "-a", "-s", ours)
        bench.run("setfiles, second", files, ["setfiles", "-T", "0", contexts, theirs])
        bench.ours("pattern set", files, "-P", "-a", "-t", pattern, "5")
        bench.run("find -exec setfattr", files, set_peer)
        bench.ours("pattern delete", files, "-P", "-d", "-t", pattern)
        bench.ours("show", files, "-R", "-g", "-l", ours)
        bench.run("getfattr -R", files, show_peer)


def records(bench):
    return sqlite3.connect(Path(os.environ["ZORV_LABEL_STATE_DIR"]) / "label.db")


def measure_records(bench, count, rounds):
    file = bench.work / "file"
    file.touch()
    bench.ours("warm", count, "-a", "-t", file, "1")
    with records(bench) as store:
        store.execute("DELETE FROM user_value")
        rows = ((f"{bench.work}/gone/d{i % 100}/file{i}".encode(),) for i in range(count))
        insert = "INSERT INTO user_value(field, is_pattern, target, package, file, path) VALUES(2, 0, ?, 7, 0, 0)"
        store.executemany(insert, rows)
    store.close()
    for number in range(rounds * 7):
        bench.ours("set", count, "-a", "-t", file, f"{number + 1:x}")
        bench.ours("get", count, "-g", "-t", file)
        bench.run("getfattr", count, ["getfattr", "-n", "security.zorv", file])
        bench.ours("list", count, "-g", "-u", "-t", "--all")
    if count == RECORDS[-1]:
        bench.ours("clear", count, "-d", "-c", "tid")


def measure_single_files(bench, rounds):
    small, file = bench.work / "small", bench.work / "small" / "d0" / "e0" / "file0"
    make_tree(small, 10)
    for _ in range(rounds * 7):
        bench.ours("tree of 10 files", 10, "-a", "-s", small)
        bench.run("getfattr -R of 10", 10, ["getfattr", "-R", "-h", "-m", "security.zorv", "-d", small])
        bench.ours("restore", 1, "-r", "-l", file)
        bench.run("getfattr", 1, ["getfattr", "-n", "security.zorv", file])
        bench.ours("digest", 1, "-3", "abc")
        bench.ours("get, no rule", 1, "-g", "-o", file)


def calls_of_a_set(bench):
    """Waits for the disk, and whether a file of the state directory was made or removed."""
    trace, state = bench.work / "trace", Path(os.environ["ZORV_LABEL_STATE_DIR"])
    command = [bench.tool, "-a", "-t", bench.work / "file"]
    bench.run("warm", 0, [*command, "1"])  # the journal that the bench's own records made is taken in
    before = {entry.inode() for entry in os.scandir(state)}
    traced = "trace=fsync,fdatasync,syncfs,unlink,unlinkat"
    bench.run("traced", 0, ["strace", "-f", "-o", trace, "-e", traced, *command, "2"])
    after = {entry.inode() for entry in os.scandir(state)}
    waits = len(re.findall(r"\b(?:fsync|fdatasync|syncfs)\(", trace.read_text()))
    removed = len(re.findall(r"\bunlink(?:at)?\(", trace.read_text()))
    return f"{waits} waits for the disk, {removed} files removed, {len(after - before)} made"


def rows_of_ratios(bench, largest):
    for size in bench.sizes("show"):
        yield "show", "getfattr -R", size
        yield "first pass", "setfiles, first", size
        yield "second pass", "setfiles, second", size
        yield "pattern set", "first pass", size
        yield "pattern delete", "first pass", size
        yield "pattern set", "find -exec setfattr", size
    yield "tree of 10 files", "getfattr -R of 10", 10
    yield "restore", "getfattr", 1
    yield "digest", "getfattr", 1
    yield "get, no rule", "getfattr", 1
    for count in RECORDS:
        yield "set", "getfattr", count
        yield "get", "getfattr", count
        yield "list", "set", count
    yield "clear", "set", largest


def plot(bench, file, title, x_label, y_label, scale, curves):
    """Curves: names of figures, with the column of a run: 0 for seconds, 1 for memory."""
    script = [
        "set terminal svg size 800,480 dynamic background 'white'",
        f"set output '{bench.report / file}'",
        f"set title '{title}'; set xlabel '{x_label}'; set ylabel '{y_label}'",
        f"set logscale {scale}; set key outside; set grid; set format x '%.0f'",
        "plot " + ", ".join(f"'-' with linespoints title '{name}'" for name, _ in curves),
    ]
    for name, column in curves:
        for size in bench.sizes(name):
            value = bench.seconds(name, size) if column == 0 else bench.memory(name, size) / 1024
            script.append(f"{max(size, 1)} {value}")
        script.append("e")
    subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)
    return f"![{title}]({file})\n"


def write_report(bench, rounds, calls):
    by_files = ["show", "getfattr -R", "first pass", "setfiles, first", "second pass", "setfiles, second"]
    by_files += ["pattern set", "pattern delete", "find -exec setfattr"]
    by_records = ["set", "get", "list", "getfattr"]
    pictures = [
        plot(bench, "files.svg", "Seconds against files", "files", "seconds", "xy", [(n, 0) for n in by_files]),
        plot(bench, "memory.svg", "Peak memory against files", "files", "MiB", "x", [(n, 1) for n in by_files]),
        plot(bench, "records.svg", "One command against records in the store", "records", "seconds", "xy",
             [(n, 0) for n in by_records]),
    ]
    turns = f"{rounds} rounds" + (", one of 1,000,000 files" if 1_000_000 in bench.sizes("show") else "")
    machine = f"{os.cpu_count()} cores, Linux {os.uname().release}, {turns}, {time.strftime('%Y-%m-%d')}"
    lines = ["# Performance", "", f"Whole processes in turn, medians; made by `scripts/bench.sh` ({machine}).", ""]
    lines += ["| work | size | seconds | MiB | beside | seconds | ratio |", "|---|---:|---:|---:|---|---:|---:|"]
    for name, peer, size in rows_of_ratios(bench, RECORDS[-1]):
        if (name, size) in bench.figures and (peer, size) in bench.figures:
            ours, theirs = bench.seconds(name, size), bench.seconds(peer, size)
            memory = f"{bench.memory(name, size) / 1024:.0f}" if bench.memory(name, size) else ""
            lines.append(f"| {name} | {size:,} | {ours:.4f} | {memory} | {peer} | {theirs:.4f} | {ours / theirs:.2f} |")
    lines += ["", f"What a set asks of the kernel: {calls}.", ""] + pictures
    (bench.report / "report.md").write_text("\n".join(lines))


def main():
    if "ZORV_IN_PRIVATE_NAMESPACE" not in os.environ:
        os.environ["ZORV_IN_PRIVATE_NAMESPACE"] = "1"
        os.execvp("unshare", ["unshare", "-m", "--propagation", "private", sys.executable, *sys.argv])
    tool, report = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
    largest = int(sys.argv[3]) if len(sys.argv) > 3 else 1_000_000
    rounds = int(sys.argv[4]) if len(sys.argv) > 4 else 3
    report.mkdir(parents=True, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/var/log"], check=True)
    os.mkdir("/var/log/zorv")
    os.environ["PATH"] += ":/usr/sbin"
    with tempfile.TemporaryDirectory(dir=os.environ.get("ZORV_BENCH_DIR", "/var/tmp")) as work:
        os.environ["ZORV_LABEL_STATE_DIR"] = f"{work}/state"
        os.environ["ZORV_LABEL_POLICY_FILE"] = f"{work}/policy.conf"
        bench = Bench(tool, report, Path(work))
        measure_single_files(bench, rounds)
        for files in (1_000, 10_000, 100_000, 1_000_000):
            if files <= largest:
                measure_files(bench, files, rounds if files < 1_000_000 else 1)
        for count in RECORDS:
            measure_records(bench, count, rounds)
        write_report(bench, rounds, calls_of_a_set(bench))
    print(report / "report.md")


main()
