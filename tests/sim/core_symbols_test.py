"""Checks what libclient_mgr_core.a needs from outside: libc and the platform contract, and nothing else.

No heap, no C++ runtime: an access point's maker links the library to the vendor's libraries with a C linker.
"""

import argparse
import pathlib
import re
import subprocess
import sys

# Of libc, but not for the daemon: it allocates nothing after start-up.
HEAP = {
    "malloc", "calloc", "realloc", "reallocarray", "free", "aligned_alloc", "memalign", "posix_memalign", "valloc",
    "strdup", "strndup", "asprintf", "vasprintf", "getline", "getdelim", "open_memstream", "mmap", "mmap64", "sbrk",
}
CXX_RUNTIME = re.compile(r"__cxa_|__gxx_|__dynamic_cast|_Unwind_|_Zn[aw]|_Zd[al]|_ZSt|_ZNSt|_ZNKSt|_ZTI|_ZTVN10__cxxabiv1")
# Made by the linker itself.
LINKER = {"_GLOBAL_OFFSET_TABLE_", "_gp_disp", "__gnu_local_gp"}


def symbols(nm, *arguments):
    """Pairs of a symbol's type letter and its name without version."""
    output = subprocess.run([nm, "-P", *arguments], check=True, capture_output=True, text=True).stdout
    fields = (line.split() for line in output.splitlines())
    return [(f[1], f[0].split("@")[0]) for f in fields if len(f) >= 2]


def contract_names(directory):
    """The functions and objects that the contract's headers declare."""
    names = set()
    for header in sorted(pathlib.Path(directory).glob("kx/*.h")):
        text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
        text = re.sub(r'^#.*$|^extern "C" \{$', "", text, flags=re.M)
        text = re.sub(r"typedef[^;{]*(\{[^}]*\})?[^;]*;", "", text)
        names.update(re.findall(r"\b(\w+)\s*\([^;]*\)\s*;", text))
        names.update(re.findall(r"\bextern\s+[^;(]*?\b(\w+)\s*;", text))
    return names


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", required=True, help="nm of the library's target")
    parser.add_argument("--library", required=True, help="libclient_mgr_core.a")
    parser.add_argument("--libc", required=True, help="the target's shared libc")
    parser.add_argument("--contract", required=True, help="the directory above the contract's kx/")
    args = parser.parse_args()

    listed = symbols(args.nm, args.library)
    defined = {name for letter, name in listed if letter not in "Uw"}
    undefined = {name for letter, name in listed if letter in "Uw"} - defined
    libc = {name for letter, name in symbols(args.nm, "-D", "--defined-only", args.libc)}
    contract = contract_names(args.contract)
    if not {"printf", "memcpy"} <= libc or not {"kx_ipc_init", "kx_log_conf_data", "log_file_name"} <= contract:
        sys.exit("the lists of allowed symbols could not be read")
    if not {"printf", "kx_ipc_init"} <= undefined:
        sys.exit("the library's symbols could not be read")

    faults = []
    for name in sorted(undefined - contract - LINKER):
        if CXX_RUNTIME.match(name):
            faults.append(f"{name}: the C++ runtime")
        elif name in HEAP:
            faults.append(f"{name}: the heap")
        elif name not in libc:
            faults.append(f"{name}: neither libc nor the platform contract")
    unused = contract - undefined
    if unused:
        faults.append("declared in the contract and never used: " + ", ".join(sorted(unused)))
    print(f"{len(undefined)} undefined symbols, {len(undefined & contract)} of them the contract's")
    if faults:
        sys.exit("\n".join(faults))


if __name__ == "__main__":
    main()
