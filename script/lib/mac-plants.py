#!/usr/bin/env python3
"""Changes a copy of the sources in one place at a time, as a Mac would punish it, and prints the
changes that no test of a Mac's back end notices. Fails if there is one.

    mac-plants.py DIRECTORY        the directory for the copy and its build

The tests run in a chroot, and as an ordinary user if the caller is root: a changed program can
delete files.
"""

import os
import pathlib
import shutil
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
TESTS = ("AppleAccessControlListTest", "AppleBackEndTest", "AppleDurabilityTest",
         "ApplePreferencesTest", "AppleRecordTest", "AppleSpawnTest")
NOBODY = 65534

RECORD = "Source/OSUtilsMac.cpp"
CONSTANTS = "Include/InstallerConstants.h"
BUNDLE = "Platform/apple/Bundle.cpp"
DOMAIN = "Platform/apple/PreferencesDomain.cpp"
DURABILITY = "Platform/apple/Durability.cpp"
INHERITANCE = "Platform/apple/Inheritance.cpp"
LISTS = "Platform/apple/AccessControlList.cpp"
TRIAL = "Platform/apple/TrialStart.cpp"

# For each change: its name, the file, and pairs of a text in the file and the text instead.
PLANTS = (
    ("no synchronization after a text", RECORD,
     ("record.SetText(key, text);\n  return record.Flush();",
      "record.SetText(key, text);\n  return true;")),
    ("no synchronization after a number", RECORD,
     ("record.SetNumber(key, number);\n  return record.Flush();",
      "record.SetNumber(key, number);\n  return true;")),
    ("synchronization of the user's domains only", DOMAIN,
     ("CFPreferencesSynchronize(application.get(), kCFPreferencesAnyUser,\n"
      "                                  kCFPreferencesCurrentHost)",
      "CFPreferencesAppSynchronize(application.get())")),
    ("reading for another user", DOMAIN,
     ("CFPreferencesCopyValue(name.get(), application.get(), kCFPreferencesAnyUser",
      "CFPreferencesCopyValue(name.get(), application.get(), kCFPreferencesCurrentUser")),
    ("writing for another user", DOMAIN,
     ("value, application.get(), kCFPreferencesAnyUser",
      "value, application.get(), kCFPreferencesCurrentUser")),
    ("synchronization for another host", DOMAIN,
     ("kCFPreferencesAnyUser,\n                                  kCFPreferencesCurrentHost)",
      "kCFPreferencesAnyUser,\n                                  kCFPreferencesAnyHost)")),
    ("a number of another type", DOMAIN,
     ("kCFAllocatorDefault, kCFNumberIntType", "kCFAllocatorDefault, kCFNumberSInt64Type")),
    ("a text read as a number", DOMAIN,
     (" || CFGetTypeID(value.get()) != CFNumberGetTypeID()", "")),
    ("a number read as a text", DOMAIN,
     (" || CFGetTypeID(value.get()) != CFStringGetTypeID()", "")),
    ("a leaked number", DOMAIN,
     ("if (const ScopedNumber number = MakeNumber(value)) {",
      "if (ScopedNumber number = MakeNumber(value)) {"),
     ("SetValue(key, number.get(), name_);", "SetValue(key, number.release(), name_);")),
    ("a number released twice", DOMAIN,
     ("if (const ScopedNumber number = MakeNumber(value)) {",
      "if (const ScopedNumber number = MakeNumber(value)) {\n    CFRelease(number.get());")),
    ("the main bundle released", BUNDLE,
     ("const CFBundleRef bundle = CFBundleGetMainBundle();",
      "const CFBundleRef bundle = CFBundleGetMainBundle();\n"
      "  const ScopedCFTypeRef<CFBundleRef> owner(bundle);")),
    ("a relative URL", BUNDLE,
     ("kResolveAgainstBase = true", "kResolveAgainstBase = false")),
    ("a path without its combining characters", BUNDLE,
     ("static_cast<CFIndex>(size));\n",
      "static_cast<CFIndex>(size)) &&\n"
      "         std::string(buffer).find(\"\\xCC\\x81\") == std::string::npos;\n"),
     ("#include \"ScopedCFTypeRef.h\"", "#include <string>\n\n#include \"ScopedCFTypeRef.h\"")),
    ("an identifier without its suffix", CONSTANTS,
     (".WebResource.plist\"", ".WebResource\"")),
    ("only ASCII keys removed", DOMAIN,
     ("    CFPreferencesSetValue(static_cast<CFStringRef>(CFArrayGetValueAtIndex",
      "    char key[64];\n"
      "    const auto name = static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), i));\n"
      "    if (!CFStringGetCString(name, key, CFStringGetLength(name) + 1, "
      "kCFStringEncodingUTF8)) {\n      continue;\n    }\n"
      "    CFPreferencesSetValue(static_cast<CFStringRef>(CFArrayGetValueAtIndex")),
    ("a volume synced without flags", DURABILITY,
     ("SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT", "0")),
    ("a volume synced without waiting", DURABILITY,
     ("SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT", "SYNC_VOLUME_FULLSYNC")),
    ("an interrupted synchronization not repeated", DURABILITY,
     ("return errno == 0 ? 0 : -1;", "return 0;")),
    ("a file synced to the cache of the drive only", DURABILITY,
     ("fcntl(descriptor, F_FULLFSYNC)", "fsync(descriptor)")),
    ("entries that deny counted", LISTS,
     (" || tag != ACL_EXTENDED_ALLOW ||", " ||")),
    ("entries for reading counted", LISTS,
     ("kWriting[] = {ACL_WRITE_DATA,", "kWriting[] = {ACL_READ_DATA, ACL_WRITE_DATA,")),
    ("one right to change not counted", LISTS,
     ("ACL_CHANGE_OWNER, ACL_WRITE_EXTATTRIBUTES", "ACL_CHANGE_OWNER")),
    ("only the first right to change looked at", LISTS,
     ("      return true;\n    }\n  }\n  return false;\n}\n\nbool IsForNew",
      "      return true;\n    }\n    break;\n  }\n  return false;\n}\n\nbool IsForNew")),
    ("only the first entry looked at", LISTS,
     ("      return true;\n    }\n  }\n  return false;\n}\n\n}  // namespace",
      "      return true;\n    }\n    break;\n  }\n  return false;\n}\n\n}  // namespace")),
    ("entries read as the draft of POSIX says", LISTS,
     ("&entry) == 0;", "&entry) == 1;")),
    ("entries for new entries counted", LISTS,
     ("(countsInherited || !IsForNewEntriesOnly(entry))", "(countsInherited || entry != nullptr)")),
    ("entries for new entries not removed", LISTS,
     ("LetsWrite(list, true)", "LetsWrite(list, false)")),
    ("a list that is not freed", LISTS,
     ("{ acl_free(list); }", "{ static_cast<void>(list); }")),
    ("a list that is freed twice", LISTS,
     ("{ acl_free(list); }", "{ acl_free(list); acl_free(list); }")),
    ("a list that cannot be read taken for none", LISTS,
     ("return error == ENOENT || error == ENOTSUP;", "return error != 0;")),
    ("a file system without lists taken for a failure", LISTS,
     (" || error == ENOTSUP", "")),
    ("a list that cannot be changed taken for a success", LISTS,
     ("return none && acl_set_fd_np(descriptor, none.get(), ACL_TYPE_EXTENDED) == 0;",
      "return none && acl_set_fd_np(descriptor, none.get(), ACL_TYPE_EXTENDED) <= 0;")),
    ("a list that is never removed", LISTS,
     ("return none && acl_set_fd_np(descriptor, none.get(), ACL_TYPE_EXTENDED) == 0;",
      "return none != nullptr;")),
    ("a trial that executes the program", TRIAL,
     ("POSIX_SPAWN_START_SUSPENDED", "0")),
    ("a trial that stays suspended", TRIAL,
     ("    kill(process, SIGKILL);\n", "")),
    ("a trial that ends by a signal which the program can ignore", TRIAL,
     ("SIGKILL", "SIGTERM")),
    ("a process that nobody waits for", TRIAL,
     ("    waitpid(process, nullptr, 0);\n", "")),
    ("a program for another processor accepted", TRIAL,
     (" && error != EBADARCH", "")),
    ("a trial that cannot be made taken for a refusal", TRIAL,
     ("return error != ENOEXEC && error != ENOENT && error != EBADARCH;", "return error == 0;")),
    ("every descriptor inherited", INHERITANCE,
     ("flags | POSIX_SPAWN_CLOEXEC_DEFAULT", "flags")),
    ("other flags of the attributes lost", INHERITANCE,
     ("flags | POSIX_SPAWN_CLOEXEC_DEFAULT", "POSIX_SPAWN_CLOEXEC_DEFAULT")),
    ("the lock's descriptor not inherited", INHERITANCE,
     (" &&\n         posix_spawn_file_actions_addinherit_np(actions, descriptor) == 0", "")),
)


def as_ordinary_user(*command):
    if os.geteuid() != 0:
        return command
    return ("setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", *command)


def copy_sources(copy):
    """Copies changed files only: the build in the copy stays usable."""
    names = subprocess.run(["git", "ls-files", "-z"], cwd=TOP, check=True, text=True,
                           stdout=subprocess.PIPE).stdout
    for name in filter(None, names.split("\0")):
        source, target = TOP / name, copy / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)


def build(directory):
    """Whether the tests can be built."""
    return subprocess.run(["cmake", "--build", directory, "--target", *TESTS],
                          check=False).returncode == 0


def pass_tests(directory):
    """Whether all tests pass. Every user can read their files and use the temporary directory."""
    temporary = directory / "temporary"
    temporary.mkdir(exist_ok=True)
    temporary.chmod(0o777)
    return subprocess.run(as_ordinary_user(
        "ctest", "--output-on-failure", "--stop-on-failure", "--no-tests=error", "--tests-regex",
        rf"^({'|'.join(TESTS)})"), cwd=directory,
        env={**os.environ, "TMPDIR": str(temporary)}, check=False).returncode == 0


def planted(text, changes):
    for old, new in changes:
        if text.count(old) != 1:
            raise SystemExit(f"mac-plants: not once in the file: {old}")
        text = text.replace(old, new)
    return text


def main():
    copy = pathlib.Path(sys.argv[1]).resolve()
    directory = copy / "build"
    copy_sources(copy)
    subprocess.run(["cmake", "-S", copy, "-B", directory, "-G", "Ninja", "-DBUILD_TOOLS=OFF",
                    "-DCMAKE_BUILD_TYPE=Debug"], check=True)
    subprocess.run(["chmod", "-R", "a+rwX", copy], check=True)
    if not build(directory) or not pass_tests(directory):
        raise SystemExit("mac-plants: the tests fail without a change")
    missed = []
    for name, file, *changes in PLANTS:
        path = copy / file
        original = path.read_text()
        try:
            path.write_text(planted(original, changes))
            if not build(directory):
                raise SystemExit(f"mac-plants: does not compile: {name}")
            isMissed = pass_tests(directory)
        finally:
            path.write_text(original)
        print(f"== {name}: {'MISSED' if isMissed else 'noticed'}", flush=True)
        missed += [name] * isMissed
    if missed:
        raise SystemExit(f"mac-plants: not noticed: {', '.join(missed)}")
    print(f"mac-plants: {len(PLANTS)} changes, all noticed")


if __name__ == "__main__":
    main()
