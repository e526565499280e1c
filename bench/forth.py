#!/usr/bin/env python3
"""vnScript's Forth beside gforth: CPU time of three small programs and of compiling many definitions.

    bench/forth.py [BUILD]      default: build/release

Our characters are cells, so the sieve stores cells where gforth stores characters. The definitions of the
compile run are words such as people write; what a start alone takes is shown first.
"""
import pathlib
import sys
import tempfile

from compare import compare

build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/release")

FIB = """
: fib dup 2 < if drop 1 else dup 1- recurse swap 2 - recurse + then ;
35 fib .
"""
SIEVE = """
create flags 8190 {allot}
: fill-flags 8190 0 do 1 flags i + {store} loop ;
: primes fill-flags 0 8190 0 do
    flags i + {fetch} if
      i 2* 3 + dup i +
      begin dup 8190 < while 0 over flags + {store} over + repeat
      2drop 1+
    then loop ;
: rounds 0 500 0 do drop primes loop ;
rounds .
"""
LOOPS = """
: nested 0 600 0 do 600 0 do 200 0 do 1+ loop loop loop ;
nested .
: nested-index 0 1000 0 do 1000 0 do i j + 3 and + loop loop ;
: rounds 10 0 do nested-index drop loop ;
rounds
"""
EXCHANGE = """
: gcd begin dup while tuck mod repeat drop ;
: collatz 0 swap begin dup 1 > while dup 1 and if 3 * 1+ else 2/ then swap 1+ swap repeat drop ;
: work 0 60000 1 do i 360 gcd + i collatz + loop ;
work .
"""
DEFINITION = """
variable counter-{n}
: clamp-{n} ( n low high -- n ) rot min max ;
: step-{n} ( n -- n ) dup 0< if negate else dup 100 > if 100 - else 1+ then then {n} + ;
: sum-{n} ( n -- n ) 0 swap 0 do i step-{n} + 1 counter-{n} +! loop ;
: search-{n} ( n -- n ) begin dup 10 > while dup 2 mod 0= if 2/ else 3 - then repeat
  case 1 of 10 endof 2 of 20 endof 3 of 30 endof dup endcase ;
"""
OURS = {"allot": "allot", "store": "!", "fetch": "@"}
THEIRS = {"allot": "allot", "store": "c!", "fetch": "c@"}


def commands(folder, name, ours, theirs):
    mine, other = folder / f"{name}.fs", folder / f"{name}-gforth.fs"
    mine.write_text(ours)
    other.write_text(theirs + "\nbye\n")
    return {"vnScript": [build / "bin/vnScript", mine], "gforth-fast": ["gforth-fast", other], "gforth": ["gforth", other]}


with tempfile.TemporaryDirectory() as path:
    folder = pathlib.Path(path)
    definitions = "".join(DEFINITION.format(n=n) for n in range(4000))
    compare("start", commands(folder, "start", "", ""), rounds=20)
    for name, text in {"fib": FIB, "loops": LOOPS, "exchange": EXCHANGE}.items():
        compare(name, commands(folder, name, text, text), rounds=5)
    compare("sieve", commands(folder, "sieve", SIEVE.format(**OURS), SIEVE.format(**THEIRS)), rounds=5)
    compare("compile 20,000 definitions", commands(folder, "compile", definitions, definitions), rounds=5)
