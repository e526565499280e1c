#!/usr/bin/env python3
"""vnXml: resolving a description set with 100,000 products of <for>, beside laying out the result; start-up beside
other calculators.  bench/vnxml.py [BUILD], default build/release"""
import pathlib
import subprocess
import sys
import tempfile

from compare import compare

root = pathlib.Path(__file__).resolve().parent.parent
vnxml = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else root / "build/release") / "bin/vnXml"
with tempfile.TemporaryDirectory() as folder:
    folder = pathlib.Path(folder)
    for block in range(100):
        (folder / f"block{block}.xml").write_text(
            f'<envelope><for index="i" start="0" end="1000" incr="1" mul="4" add="0x{0x40000000 + block * 0x1000:x}">'
            f'<Register name="R{block}_$(i)" start="$(i_ap_hex)" size="4" access="$(Access)" '
            f'description="Register $(i) of block {block}"/></for></envelope>')
    main = folder / "main.xml"
    main.write_text("<root>" + "".join(f'<include filename="block{block}.xml"/>' for block in range(100)) + "</root>")
    result = folder / "result.xml"
    result.write_bytes(subprocess.run([vnxml, "process", main], check=True, stdout=subprocess.PIPE).stdout)
    compare("100,000 products in 100 files",
            {"process --expand": [vnxml, "process", main, "--expand", "--macros", "Access=ReadWrite"],
             "process": [vnxml, "process", main], "format of the result": [vnxml, "format", result]})
compare("start-up", {"vnXml": [vnxml, "eval", "1+1"], "duk": ["duk", "-e", "1+1"], "node": ["node", "-e", "1+1"]},
        rounds=20, wall=True)
