#!/usr/bin/env -S python3 -S -E
"""The commands that script/package-macos runs on a Mac, as doubles: it is called by their names.

Each one refuses arguments that the command's manual does not allow in this place, and leaves what
the next one needs. MAC_TOOLS is the directory of their state; its file "calls" lists what was
called. FAULT names one thing that goes wrong.
"""

import os  # and nothing that takes longer: this program is started 600 times
import sys

STATE = os.environ["MAC_TOOLS"]
FAULT = os.environ.get("FAULT")


def state(name):
    return os.path.join(STATE, name)


def read(path):
    with open(path, encoding="utf-8", errors="surrogateescape") as stream:
        return stream.read()


def write(path, text=""):
    with open(path, "w", encoding="utf-8", errors="surrogateescape") as stream:
        stream.write(text)


def require(holds, mistake):
    if not holds:
        sys.exit(f"double of {NAME}: {mistake}: {' '.join(ARGUMENTS)}")


def has_form(*form):
    """Whether the arguments have this form, in which None is any one."""
    return len(form) == len(ARGUMENTS) and all(
        wanted in (None, given) for wanted, given in zip(form, ARGUMENTS))


def digest(directory):
    """What a signature covers."""
    return "".join(f"{path}\n{read(path)}\n" for path in sorted(
        os.path.join(parent, name) for parent, _, names in os.walk(directory) for name in names
        if os.path.isfile(os.path.join(parent, name))))


def is_signed(path):
    return os.path.exists(state("signed " + os.path.basename(path)))


def sources():
    return read("Deploy/macos/sources").splitlines()


def curl():
    require(has_form("--fail", "--location", "--silent", "--show-error", "--output", None, None),
            "unknown form")
    require(ARGUMENTS[-1].startswith("https://"), "not a safe address")
    write(ARGUMENTS[5], ARGUMENTS[6])


def shasum():
    require(has_form("-a", "256", None), "unknown form")
    address = read(ARGUMENTS[2])
    [known] = [line.split()[2] for line in sources() if f" {address} " in line]
    print("0" * 64 if FAULT == "archive" else known, "", ARGUMENTS[2])


def tar():
    require(has_form("-xzf", None, "-C", None, "--strip-components", "1"), "unknown form")
    directory = ARGUMENTS[3]
    require(os.path.isdir(directory), "no directory to unpack to")
    library = os.path.basename(directory)
    [release] = [line.split() for line in sources() if line.startswith(library + " ")]
    contents = {  # of what the releases have, as much as is used
        "minizip": [f"contrib/minizip/{name}" for name in (
            "crypt.h", "ioapi.c", "ioapi.h", "unzip.c", "unzip.h", "zip.c", "zip.h")],
        "utf8proc": ("utf8proc.c", "utf8proc.h", "utf8proc_data.c"),
        "cli11": ("include/CLI/CLI.hpp",),
        "nlohmann-json": ("include/nlohmann/json.hpp",)}[library]
    for name in contents:
        path = os.path.join(directory, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        write(path)
    for name in release[4:]:
        write(os.path.join(directory, name), "a licence of " + library)


def clang():
    require(has_form("-O2", "-arch", "arm64", "-arch", "x86_64", "-mmacosx-version-min=11.0",
                     "-DUTF8PROC_STATIC", "-c", None, "-o", None), "unknown form")
    require(os.path.isfile(ARGUMENTS[8]), "no source")
    write(ARGUMENTS[10])


def libtool():
    require(ARGUMENTS[:2] == ["-static", "-o"] and len(ARGUMENTS) > 3, "unknown form")
    require(all(os.path.isfile(name) for name in ARGUMENTS[3:]), "no object")
    write(ARGUMENTS[2])


def cmake():
    if ARGUMENTS[0] == "--build":
        require(has_form("--build", None) and os.path.isdir(ARGUMENTS[1]), "nothing to build")
    elif ARGUMENTS[0] == "--install":
        require(has_form("--install", None, "--prefix", None, "--strip"), "unknown form")
        lines = read(state("definitions")).splitlines()
        install(dict(line.split("=", 1) for line in lines), ARGUMENTS[3])
    else:
        configure()


def configure():
    require(ARGUMENTS[:6:2] == ["-S", "-B", "-G"] and ARGUMENTS[1] == ".", "unknown form")
    require(all(argument.startswith("-D") for argument in ARGUMENTS[6:]), "unknown option")
    definitions = dict(argument[2:].split("=", 1) for argument in ARGUMENTS[6:])
    require(definitions["CMAKE_OSX_ARCHITECTURES"] == "arm64;x86_64", "not universal")
    require(definitions["CMAKE_OSX_DEPLOYMENT_TARGET"] == "11.0", "another oldest system")
    require(not os.path.exists(ARGUMENTS[3]), "the cache of an earlier run")
    for library, header in (("minizip", "unzip.h"), ("libutf8proc", "utf8proc.h")):
        find_library(library, header)
    for package in ("CLI11", "nlohmann_json"):
        directory = os.environ["CMAKE_PREFIX_PATH"]
        configuration = f"{directory}/{package}Config.cmake"
        require(os.path.isfile(configuration), "find_package would not find " + package)
        [_, after] = read(configuration).split("${CMAKE_CURRENT_LIST_DIR}")
        require(os.path.isdir(directory + after.split(")")[0]), "no headers of " + package)
    os.makedirs(ARGUMENTS[3])
    write(state("definitions"), "".join(f"{name}={value}\n"
                                        for name, value in definitions.items()))


def find_library(library, header):
    """Fails unless every directory that pkg-config names has the file to look for there."""
    import shlex
    import subprocess  # not above: it takes as long as all the rest
    printed = subprocess.run(["pkg-config", "--cflags", "--libs", library], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    flags = shlex.split(printed)
    [archive] = [f"lib{flag[2:]}.a" for flag in flags if flag.startswith("-l")]
    for option, name in (("-I", header), ("-L", archive)):
        places = [flag[2:] for flag in flags if flag.startswith(option)]
        require(places, f"no {option} for {library}")
        for place in places:
            require(os.path.isfile(f"{place}/{name}"), f"no {name} in {place}")


def install(definitions, root):
    bundle = definitions["BUNDLE_DESTINATION"] + "/WebResourceInstaller.app/Contents"
    documents = definitions["CMAKE_INSTALL_DATADIR"] + "/doc/web-resource-installer"
    for name in (f"{bundle}/MacOS/WebResourceInstaller", f"{bundle}/Info.plist",
                 f"{documents}/THIRD-PARTY-NOTICES.md"):
        path = os.path.join(root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        write(path, name)
    os.mkdir(os.path.join(root, bundle, "Resources"))
    command = os.path.join(root, definitions["CMAKE_INSTALL_BINDIR"], "webresources")
    os.makedirs(os.path.dirname(command))
    os.symlink(os.path.abspath(__file__), command)
    for variable in ("CMAKE_INSTALL_DATADIR", "CMAKE_INSTALL_MANDIR"):
        require(not os.path.isabs(definitions[variable]), "a place outside of the root")


def webresources():
    if ARGUMENTS[0] == "pack":
        require(has_form("pack", None, "--update-id", None, "--output", None, "--quiet"),
                "unknown form")
        require(os.path.isdir(ARGUMENTS[1]), "no content")
        write(os.path.join(ARGUMENTS[5], "Contents/Resources/metadata.txt"), ARGUMENTS[3])
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
        write(state("digest"), digest(code))
    write(state(f"signed {name}"), ARGUMENTS[7])


def pkgbuild():
    require(has_form("--root", None, "--install-location", "/", "--component-plist", None,
                     "--scripts", None, "--identifier", None, "--version", None,
                     "--ownership", "recommended", None), "unknown form")
    root = ARGUMENTS[1]
    for script in ("preinstall", "postinstall"):
        require(os.access(f"{ARGUMENTS[7]}/{script}", os.X_OK), "no script " + script)
    require(f"\nupdate={ARGUMENTS[11]} " in read(ARGUMENTS[7] + "/preinstall"),
            "preinstall does not know the update")
    require(os.path.isfile(ARGUMENTS[5]), "no component property list")
    require(not os.path.exists(root + "/usr"), "what belongs to the machine's owner")
    for parent, names, files in os.walk(root):
        for path in [os.path.join(parent, name) for name in ["."] + names + files]:
            mode = os.stat(path).st_mode & 0o777
            wanted = 0o755 if os.path.isdir(path) or mode & 0o100 else 0o644
            require(mode == wanted, f"{path} has mode {mode:o}")
    if os.path.exists(state("digest")):
        [application] = (os.path.join(parent, name) for parent, names, _ in os.walk(root)
                         for name in names if name.endswith(".app"))
        require(read(state("digest")) == digest(application), "changed after its signing")
    write(ARGUMENTS[-1])


def productbuild():
    options = [None, None, "--timestamp"] if "--sign" in ARGUMENTS else []
    require(has_form("--distribution", None, "--package-path", None, *options, None),
            "unknown form")
    require(os.path.isfile(os.path.join(ARGUMENTS[3], "component.pkg")), "no component")
    require(os.path.isabs(ARGUMENTS[-1]), "a package at a place that depends on a directory")
    write(ARGUMENTS[-1])
    if options:
        write(state("signed package"))


def pkgutil():
    require(has_form("--check-signature", None), "unknown form")
    require(is_signed("package") and FAULT != "package-signature", "no signature")


def xcrun():
    stapled = state("stapled")
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
        write(stapled)
    else:
        require(has_form("stapler", "validate", None), "unknown form")
        require(os.path.exists(stapled) and FAULT != "ticket", "no ticket")


def spctl():
    require(has_form("--assess", "--type", "install", "--verbose=2", None), "unknown form")
    require(os.path.exists(state("stapled")) and FAULT != "gatekeeper", "rejected")


def sed():
    """A Mac's sed wants a ";" before "}" and knows none of the GNU options."""
    import re  # not above: it takes as long as all the rest
    require(not any(re.search(r"[^;\n\\]}", argument) for argument in ARGUMENTS),
            "a form of GNU sed")
    require(not any(argument.startswith(("-i", "-r", "--")) for argument in ARGUMENTS),
            "an option of GNU sed")
    os.execv("/usr/bin/sed", [NAME, *ARGUMENTS])


NAME, ARGUMENTS = os.path.basename(sys.argv[0]), sys.argv[1:]
if __name__ == "__main__":
    if NAME != "sed":
        with open(state("calls"), "a", encoding="utf-8") as calls:
            print(NAME, *ARGUMENTS, file=calls)
    globals()[NAME]()
