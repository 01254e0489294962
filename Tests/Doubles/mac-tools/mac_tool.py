#!/usr/bin/env -S python3 -S -E
"""The commands that script/package-macos runs on a Mac, as doubles: it is called by their names.

Each one refuses arguments that the command's manual does not allow in this place, and leaves what
the next one needs. MAC_TOOLS is the directory of their state; its file "calls" lists what was
called. FAULT names one thing that goes wrong.
"""

import os
import pathlib
import re
import sys

STATE = pathlib.Path(os.environ["MAC_TOOLS"])
FAULT = os.environ.get("FAULT")


def require(holds, mistake):
    if not holds:
        sys.exit(f"double of {NAME}: {mistake}: {' '.join(ARGUMENTS)}")


def has_form(*form):
    """Whether the arguments have this form, in which None is any one."""
    return len(form) == len(ARGUMENTS) and all(
        wanted in (None, given) for wanted, given in zip(form, ARGUMENTS))


def digest(directory):
    """What a signature covers."""
    import hashlib  # here: this program is started 600 times, and its imports take the longest
    files = sorted(path for path in pathlib.Path(directory).rglob("*") if path.is_file())
    return hashlib.sha256(b"".join(str(path).encode() + path.read_bytes()
                                   for path in files)).hexdigest()


def is_signed(path):
    return (STATE / ("signed " + os.path.basename(path))).exists()


def sources():
    return pathlib.Path("Deploy/macos/sources").read_text().splitlines()


def curl():
    require(has_form("--fail", "--location", "--silent", "--show-error", "--output", None, None),
            "unknown form")
    require(ARGUMENTS[-1].startswith("https://"), "not a safe address")
    pathlib.Path(ARGUMENTS[5]).write_text(ARGUMENTS[6])


def shasum():
    require(has_form("-a", "256", None), "unknown form")
    address = pathlib.Path(ARGUMENTS[2]).read_text()
    [known] = [line.split()[2] for line in sources() if f" {address} " in line]
    print("0" * 64 if FAULT == "archive" else known, "", ARGUMENTS[2])


def tar():
    require(has_form("-xzf", None, "-C", None, "--strip-components", "1"), "unknown form")
    directory = pathlib.Path(ARGUMENTS[3])
    require(directory.is_dir(), "no directory to unpack to")
    [release] = [line.split() for line in sources() if line.startswith(f"{directory.name} ")]
    contents = {
        "minizip": ("contrib/minizip/unzip.c", "contrib/minizip/zip.c", "contrib/minizip/ioapi.c"),
        "utf8proc": ("utf8proc.c",),
        "cli11": ("include/CLI/CLI.hpp",),
        "nlohmann-json": ("include/nlohmann/json.hpp",)}[directory.name]
    for name in contents:
        (directory / name).parent.mkdir(parents=True, exist_ok=True)
        (directory / name).touch()
    (directory / release[-1]).write_text("the licence of " + directory.name)


def clang():
    require(has_form("-O2", "-arch", "arm64", "-arch", "x86_64", "-mmacosx-version-min=11.0",
                     "-DUTF8PROC_STATIC", "-c", None, "-o", None), "unknown form")
    require(os.path.isfile(ARGUMENTS[8]), "no source")
    pathlib.Path(ARGUMENTS[10]).touch()


def libtool():
    require(ARGUMENTS[:2] == ["-static", "-o"] and len(ARGUMENTS) > 3, "unknown form")
    require(all(os.path.isfile(name) for name in ARGUMENTS[3:]), "no object")
    pathlib.Path(ARGUMENTS[2]).touch()


def cmake():
    if ARGUMENTS[0] == "--build":
        require(has_form("--build", None) and os.path.isdir(ARGUMENTS[1]), "nothing to build")
    elif ARGUMENTS[0] == "--install":
        require(has_form("--install", None, "--prefix", None, "--strip"), "unknown form")
        lines = (STATE / "definitions").read_text().splitlines()
        install(dict(line.split("=", 1) for line in lines), pathlib.Path(ARGUMENTS[3]))
    else:
        configure()


def configure():
    require(ARGUMENTS[:6:2] == ["-S", "-B", "-G"] and ARGUMENTS[1] == ".", "unknown form")
    require(all(argument.startswith("-D") for argument in ARGUMENTS[6:]), "unknown option")
    definitions = dict(argument[2:].split("=", 1) for argument in ARGUMENTS[6:])
    require(definitions["CMAKE_OSX_ARCHITECTURES"] == "arm64;x86_64", "not universal")
    require(definitions["CMAKE_OSX_DEPLOYMENT_TARGET"] == "11.0", "another oldest system")
    for library in ("minizip", "libutf8proc"):
        directory = pathlib.Path(os.environ["PKG_CONFIG_PATH"])
        require((directory / f"{library}.pc").is_file(), "pkg-config would not find " + library)
        name = library.replace("libu", "u")
        require((directory / name / f"lib{name}.a").is_file(), "no library " + library)
    for package in ("CLI11", "nlohmann_json"):
        directory = pathlib.Path(os.environ["CMAKE_PREFIX_PATH"])
        configuration = directory / f"{package}Config.cmake"
        require(configuration.is_file(), "find_package would not find " + package)
        [headers] = re.findall(r"\${CMAKE_CURRENT_LIST_DIR}(\S+)\)", configuration.read_text())
        require((directory / headers.lstrip("/")).is_dir(), "no headers of " + package)
    pathlib.Path(ARGUMENTS[3]).mkdir(parents=True)
    (STATE / "definitions").write_text("".join(f"{name}={value}\n"
                                               for name, value in definitions.items()))


def install(definitions, root):
    contents = root / definitions["BUNDLE_DESTINATION"] / "WebResourceInstaller.app/Contents"
    command = root / definitions["CMAKE_INSTALL_BINDIR"] / "webresources"
    command.parent.mkdir(parents=True)
    command.symlink_to(os.path.abspath(__file__))
    for name in ("MacOS/WebResourceInstaller", "Info.plist"):
        (contents / name).parent.mkdir(parents=True, exist_ok=True)
        (contents / name).write_text(name)
    (contents / "Resources").mkdir()
    documents = root / definitions["CMAKE_INSTALL_DATADIR"] / "doc/web-resource-installer"
    documents.mkdir(parents=True)
    (documents / "THIRD-PARTY-NOTICES.md").touch()
    for variable in ("CMAKE_INSTALL_DATADIR", "CMAKE_INSTALL_MANDIR"):
        require(not os.path.isabs(definitions[variable]), "a place outside of the root")


def webresources():
    if ARGUMENTS[0] == "pack":
        require(has_form("pack", None, "--update-id", None, "--output", None, "--quiet"),
                "unknown form")
        require(os.path.isdir(ARGUMENTS[1]), "no content")
        resources = pathlib.Path(ARGUMENTS[5], "Contents/Resources")
        (resources / "metadata.txt").write_text(ARGUMENTS[3])
    else:
        require(has_form("check", "--prove", "--quiet", None), "unknown form")
        require(FAULT != "check", "a finding")


def lipo():
    require(has_form(None, "-verify_arch", "arm64", "x86_64"), "unknown form")
    require(os.path.isfile(ARGUMENTS[0]) and FAULT != "slice", "not for every architecture")


def otool():
    require(ARGUMENTS[:2] == ["-arch", "all"] and len(ARGUMENTS) == 4, "unknown form")
    require(os.path.isfile(ARGUMENTS[3]), "no program")
    for architecture in ("x86_64", "arm64"):
        print(f"{ARGUMENTS[3]} (architecture {architecture}):")
        if ARGUMENTS[2] == "-L":
            libraries = ["/usr/lib/libz.1.dylib", "/usr/lib/libc++.1.dylib",
                         "/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation"]
            if FAULT == "library" and architecture == "arm64":
                libraries.append("/opt/homebrew/opt/minizip/lib/libminizip.1.dylib")
            for library in libraries:
                print(f"\t{library} (compatibility version 1.0.0, current version 1.2.12)")
        else:
            require(ARGUMENTS[2] == "-l", "unknown form")
            oldest = "13.0" if FAULT == "oldest" and architecture == "arm64" else "11.0"
            print(f"Load command 9\n      cmd LC_BUILD_VERSION\n    minos {oldest}\n      sdk 15.1")


def codesign():
    code = ARGUMENTS[-1]
    require(os.path.exists(code), "no code")
    if ARGUMENTS[0] == "--verify":
        require(has_form("--verify", "--strict", "--deep", "--verbose=2", None), "unknown form")
        require(is_signed(code) and FAULT != "signature", "the signature is invalid")
        return
    require(has_form("--force", "--timestamp", "--options", "runtime", "--sign", None,
                     "--identifier", None, None), "unknown form")
    name = os.path.basename(code)
    if name.endswith(".app"):
        require(is_signed("webresources"), "what is inside is not signed")
        (STATE / "digest").write_text(digest(code))
    (STATE / f"signed {name}").write_text(ARGUMENTS[7])


def pkgbuild():
    require(has_form("--root", None, "--install-location", "/", "--component-plist", None,
                     "--scripts", None, "--identifier", None, "--version", None,
                     "--ownership", "recommended", None), "unknown form")
    root = pathlib.Path(ARGUMENTS[1])
    require(os.access(pathlib.Path(ARGUMENTS[7], "postinstall"), os.X_OK), "no script")
    require(os.path.isfile(ARGUMENTS[5]), "no component property list")
    require(not (root / "usr").exists(), "what belongs to the machine's owner")
    if (STATE / "digest").exists():
        [application] = root.rglob("*.app")
        require((STATE / "digest").read_text() == digest(application), "changed after its signing")
    pathlib.Path(ARGUMENTS[-1]).touch()


def productbuild():
    options = [None, None, "--timestamp"] if "--sign" in ARGUMENTS else []
    require(has_form("--distribution", None, "--package-path", None, *options, None),
            "unknown form")
    require(os.path.isfile(os.path.join(ARGUMENTS[3], "component.pkg")), "no component")
    require(os.path.isabs(ARGUMENTS[-1]), "a package at a place that depends on a directory")
    pathlib.Path(ARGUMENTS[-1]).touch()
    if options:
        (STATE / "signed package").touch()


def pkgutil():
    require(has_form("--check-signature", None), "unknown form")
    require(is_signed("package") and FAULT != "package-signature", "no signature")


def xcrun():
    stapled = STATE / "stapled"
    if ARGUMENTS[:2] == ["notarytool", "submit"]:
        require(has_form("notarytool", "submit", None, "--keychain-profile", None, "--wait",
                         "--output-format", "json"), "unknown form")
        require(os.path.isfile(ARGUMENTS[2]) and is_signed("package"), "nothing to notarize")
        status = "Invalid" if FAULT == "notary" else "Accepted"
        print('{"id":"4711","message":"Processing complete","status":"%s"}' % status)
    elif ARGUMENTS[:2] == ["notarytool", "log"]:
        require(has_form("notarytool", "log", "4711", "--keychain-profile", None), "unknown form")
        print("the reasons why not")
    elif has_form("stapler", "staple", None):
        stapled.touch()
    else:
        require(has_form("stapler", "validate", None), "unknown form")
        require(stapled.exists() and FAULT != "ticket", "no ticket")


def spctl():
    require(has_form("--assess", "--type", "install", "--verbose=2", None), "unknown form")
    require((STATE / "stapled").exists() and FAULT != "gatekeeper", "rejected")


def sed():
    """A Mac's sed wants a ";" before "}" and knows none of the GNU options."""
    require(not any(re.search(r"[^;\n\\]}", argument) for argument in ARGUMENTS),
            "a form of GNU sed")
    require(not any(argument.startswith(("-i", "-r", "--")) for argument in ARGUMENTS),
            "an option of GNU sed")
    os.execv("/usr/bin/sed", [NAME, *ARGUMENTS])


NAME, ARGUMENTS = os.path.basename(sys.argv[0]), sys.argv[1:]
if __name__ == "__main__":
    if NAME != "sed":
        with open(STATE / "calls", "a", encoding="utf-8") as calls:
            print(NAME, *ARGUMENTS, file=calls)
    globals()[NAME]()
