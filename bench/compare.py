"""Runs programs beside their peers and prints ratios of CPU time (user and system, children included).

    from compare import compare
    compare("a title", {"ours": ["vnDump", ...], "peer": ["eu-nm", ...]}, rounds=10)

Rounds alternate between the programs, so that a slow moment of the machine meets all of them; the least of
each counts. Output of the programs is thrown away; one that fails ends the benchmark.
"""
import os
import subprocess
import sys
import time


def cpu_seconds(command, wall=False, **options):
    """CPU seconds (or wall seconds) and peak memory in MB of one run."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    elapsed = time.perf_counter() - start
    if process.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} ended with {process.returncode}")
    return elapsed if wall else usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def compare(title, programs, rounds=10, wall=False, **options):
    """Prints each program's best time, its ratio to the last one's and its peak memory; gives the times."""
    best, memory = {}, {}
    for _ in range(rounds):
        for name, command in programs.items():
            seconds, megabytes = cpu_seconds(command, wall, **options)
            best[name] = min(best.get(name, seconds), seconds)
            memory[name] = megabytes
    reference = list(programs)[-1]
    print(f"{title} ({'wall' if wall else 'CPU'} time, best of {rounds})")
    for name, seconds in best.items():
        ratio = ""
        if name != reference:
            ratio = f"{seconds / best[reference]:6.3f} x {reference}, memory {memory[name] / memory[reference]:5.2f} x"
        print(f"  {name:28} {seconds * 1000:9.1f} ms {memory[name]:7.1f} MB  {ratio}")
    return best
