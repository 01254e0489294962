#!/usr/bin/env python3
"""Writes the bill of materials of the built programs, as CycloneDX 1.5 JSON, and copies the
licences of what they contain.

    bill_of_materials.py VERSION COMPILER BUILD-DIRECTORY OUTPUT.json LICENCES-DIRECTORY PROGRAM...

A component is a Debian source package. Its linkage says how a program uses the package:

    shared library    the program loads the library (source: readelf)
    static library    the program contains objects of the library (source: the linker's PROGRAM.map)
    headers           the program is compiled with the headers (source: the compiler's option -M)

The build fails if the script does not know a licence."""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

# SPDX names of Debian's licence names. UNREADABLE: packages with a copyright file in free form.
SPDX = {"zlib": "Zlib", "Zlib": "Zlib", "Expat": "MIT", "BSD-3-clause": "BSD-3-Clause",
        "LGPL-2.1+": "LGPL-2.1-or-later"}
GCC = re.compile(r"gcc-\d+$")
CROSS_SOURCE = "cross-toolchain-base"  # of the packages libc6-*-cross and linux-libc-*-cross
UNREADABLE = {"glibc": "LGPL-2.1-or-later", "linux": "GPL-2.0-only WITH Linux-syscall-note",
              "nettle": "LGPL-3.0-or-later OR GPL-2.0-or-later"}


def output(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def shared_libraries(compiler, program):
    """The library files. Works for other processors, too, whose programs ldd cannot run."""
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-dW", program))
    return {output(compiler, f"-print-file-name={name}").strip() for name in needed}


def static_libraries(program):
    return set(re.findall(r"^(/[^\s()]+\.a)\(", pathlib.Path(f"{program}.map").read_text(),
                          re.MULTILINE))


def headers(compilation):
    """The files that one source file includes."""
    words = shlex.split(compilation["command"])
    place = words.index("-o")
    rules = output(*words[:place], *words[place + 2:], "-M", cwd=compilation["directory"])
    return set(re.findall(r"(/\S+)", rules.replace("\\\n", " ")))


def all_headers(build):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = set().union(*pool.map(
            headers, json.loads((build / "compile_commands.json").read_text())))
    return {path for path in found if re.match(r"/usr(/[^/]*-linux-gnu)?/include/", path)}


def packages(paths):
    """The Debian packages that own the files. Fails if a file has no owner."""
    real = {os.path.realpath(path) for path in paths}
    # The package database has the old names of directories that were merged into /usr.
    asked = sorted(real | {path.removeprefix("/usr") for path in real})
    found = subprocess.run(["dpkg-query", "--search", *asked], check=False, text=True,
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    owners = {}
    for names, path in re.findall(r"^(?!diversion)(.*): (/.*)$", found, re.MULTILINE):
        owners[path if path in real else f"/usr{path}"] = names.split(", ")[0]
    missing = real - owners.keys()
    if missing:
        sys.exit(f"no Debian package has {', '.join(sorted(missing))}")
    return set(owners.values())


def described(package):
    """The name and the version of the source package of `package`."""
    source, version, own = output(
        "dpkg-query", "--show", "--showformat=${source:Package} ${source:Version} ${Version}",
        package).split(" ")
    if source == CROSS_SOURCE or source.endswith("-cross"):  # repackaged for a cross compiler
        library = "linux" if package.startswith("linux-") else "glibc"
        return [library if source == CROSS_SOURCE else source.removesuffix("-cross"),
                re.sub(r"cross\d+$", "", own)]
    return [source, version]


def copyright_file(package):
    return pathlib.Path("/usr/share/doc") / package.split(":")[0] / "copyright"


def licence(source, package):
    if GCC.match(source):
        return "GPL-3.0-or-later WITH GCC-exception-3.1"
    if source in UNREADABLE:
        return UNREADABLE[source]
    stanza = re.search(r"^Files: \*\n(?:.+\n)*?License: (\S+)", copyright_file(package).read_text(),
                       re.MULTILINE)
    if not stanza or stanza[1] not in SPDX:
        sys.exit(f"the licence of {source} is not known to {sys.argv[0]}")
    return SPDX[stanza[1]]


def component(source, version, package, linkages):
    purl = f"pkg:deb/debian/{source}@{version}?arch=source"
    return {"type": "library", "bom-ref": purl, "name": source, "version": version,
            "licenses": [{"expression": licence(source, package)}], "purl": purl,
            "properties": [{"name": "linkage", "value": each} for each in sorted(linkages)]}


def main(version, compiler, build, bill, licences, *programs):
    evidence = {"shared library": set().union(
                    *(shared_libraries(compiler, program) for program in programs)),
                "static library": set().union(*map(static_libraries, programs)),
                "headers": all_headers(pathlib.Path(build))}
    linkages, examples = {}, {}
    for linkage, files in evidence.items():
        for package in sorted(packages(files)):
            source = tuple(described(package))
            linkages.setdefault(source, set()).add(linkage)
            examples.setdefault(source, package)
    components = [component(*source, examples[source], linkages[source])
                  for source in sorted(linkages)]
    name = "WebResourceInstaller"
    pathlib.Path(bill).write_text(json.dumps({
        "bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
        "metadata": {"component": {"type": "application", "bom-ref": name, "name": name,
                                   "version": version}},
        "components": components,
        "dependencies": [{"ref": name, "dependsOn": [each["bom-ref"] for each in components]}],
    }, indent=2) + "\n")
    shutil.rmtree(licences, ignore_errors=True)
    pathlib.Path(licences).mkdir()
    for source, found in linkages.items():
        if "static library" in found or found == {"headers"}:  # a program contains parts
            shutil.copyfile(copyright_file(examples[source]),
                            pathlib.Path(licences) / f"{source[0]}.txt")


main(*sys.argv[1:])
