"""The installed command webresources: test_webresources.py BUILD-DIRECTORY [TEST...]"""

import contextlib
import errno
import hashlib
import json
import os
import pathlib
import plistlib
import pty
import re
import resource
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import warnings
import zipfile
import zlib

import jsonschema

import private_root
from private_root import SEVEN_ZIP, SOURCE, command_in, full_version, heed_signals

BUILD = pathlib.Path(sys.argv[1]).resolve()
TEMPORARY = tempfile.TemporaryDirectory(prefix='webresources-')
WORK = pathlib.Path(TEMPORARY.name)
PREFIX = WORK / 'prefix'
COMMAND = PREFIX / 'bin/webresources'
COMMANDS = ('pack', 'check', 'info', 'diff', 'plan', 'install', 'verify', 'installcheck', 'status',
            'uninstall')
OUTPUT = ('--json', '--quiet', '--all')  # before or after the command
INSTALL_ROOT = private_root.INSTALL_ROOT.lstrip('/')  # relative to a chroot
RECORD = private_root.RECORD.lstrip('/')
WEB_PACKAGE = pathlib.Path('/usr/share/javascript/dojox')
IS_SANITIZED = '-fsanitize' in (BUILD / 'CMakeCache.txt').read_text()
NOBODY = 65534


def setUpModule():
    WORK.chmod(0o755)
    subprocess.run(['cmake', '--install', BUILD, '--prefix', PREFIX], check=True,
                   stdout=subprocess.DEVNULL)


def tearDownModule():
    TEMPORARY.cleanup()


def run(*arguments, **options):
    environment = {**os.environ, **options.pop('env', {})}
    return subprocess.run([COMMAND, *arguments], capture_output=True, text=True, env=environment,
                          timeout=120, **options)


def output_on_a_terminal(command, stream='stdout', **options):
    """Returns everything that a command writes to one of its streams, a terminal."""
    master, terminal = pty.openpty()
    with subprocess.Popen(command, **{**options, stream: terminal}):
        os.close(terminal)
        shown = b''
        try:
            while part := os.read(master, 4096):
                shown += part
        except OSError as error:  # Linux reports the end so; the kernel passes the bytes on later
            if error.errno != errno.EIO:
                raise
    os.close(master)
    return shown


def as_ordinary_user():
    return {'user': NOBODY, 'group': NOBODY, 'extra_groups': []} if os.geteuid() == 0 else {}


def tree_of(directory):
    """Returns a map of relative paths to the content of a file, or to None for a directory."""
    return {str(path.relative_to(directory)): path.read_bytes() if path.is_file() else None
            for path in pathlib.Path(directory).rglob('*')}


class Case(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(dir=WORK))
        self.directory.chmod(0o755)
        self.resources = self.directory / 'X.app/Contents/Resources'
        self.resources.mkdir(parents=True)
        program = self.resources.parent / os.environ['EXECUTABLES'] / 'WebResourceInstaller'
        program.parent.mkdir()
        program.write_text('#!/bin/sh\n')
        program.chmod(0o755)
        self.package = self.resources / 'OrloWebResources.zip'
        self.site = self.directory / 'site'
        (self.site / 'css/deep').mkdir(parents=True)
        (self.site / 'index.html').write_text('<p>hello</p>' * 500)
        (self.site / 'css/a.css').write_text('a { color: red }')
        (self.site / 'css/deep/random').write_bytes(os.urandom(30000))
        (self.site / 'css/empty').touch()
        (self.site / 'b\u00e4r').write_text('name')

    def pack(self, *arguments, status=0, output=None, **options):
        target = ['--output', output, '--create'] if output else ['--output', self.resources]
        result = run('pack', self.site, '--update-id', '7', *target, *arguments, **options)
        self.assertEqual(result.returncode, status, result.stderr + result.stdout)
        return result

    def write_metadata(self):
        (self.resources / 'metadata.txt').write_text(
            '{"clear":false,"updateid":7,"regenerate":false}\n')

    def write_archive(self, entries):
        warnings.simplefilter('ignore')  # zipfile warns about duplicate names
        with zipfile.ZipFile(self.package, 'w') as archive:
            for name, data in entries:
                archive.writestr(name, data)
        self.write_metadata()

    def check_ids(self):
        result = run('check', '--json', self.resources)
        return [finding['id'] for finding in json.loads(result.stdout)['findings']]


class InstallTest(Case):
    def test_command_manual_and_completions_are_installed(self):
        for path in ('bin/webresources', 'share/man/man1/webresources.1',
                     'share/bash-completion/completions/webresources',
                     'share/zsh/site-functions/_webresources'):
            self.assertGreater((PREFIX / path).stat().st_size, 0, path)

    def test_help_of_every_command_has_an_example(self):
        for command in COMMANDS:
            self.assertIn('Example: webresources ' + command, run(command, '--help').stdout)

    def completed(self, *words):
        """Returns bash's completions of the last word."""
        script = ('. "$0" && COMP_WORDS=("$@") && COMP_CWORD=$(($# - 1)) && _webresources "$1" && '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        completion = PREFIX / 'share/bash-completion/completions/webresources'
        result = subprocess.run(['bash', '-c', script, completion, COMMAND, *words], check=True,
                                text=True, stdout=subprocess.PIPE)
        return set(result.stdout.split())

    def test_bash_completes_every_command_and_option_from_the_help(self):
        self.assertEqual(self.completed(''), {*COMMANDS, 'help', '--help', '--version', *OUTPUT})
        for command in COMMANDS:
            options = set(re.findall(r'--[a-z][a-z-]+', run(command, '--help').stdout))
            self.assertLessEqual(options, self.completed(command, '--'), command)
        self.assertEqual(self.completed('check', '--pro'), {'--prove'})

    def test_every_rule_is_expected_by_a_test_of_findings(self):
        tests = ''.join(path.read_text() for pattern in ('*Test.cpp', 'test_install.py')
                        for path in (SOURCE / 'Tests/Tools').glob(pattern))
        source = (SOURCE / 'Tools/webresources/report/Rules.h').read_text()
        rules = re.findall(r'\{\s*"([a-z0-9-]+)",\s*Severity::', source)
        self.assertEqual(len(rules), source.count('constexpr Rule '))
        self.assertEqual([rule for rule in rules if not re.search(f'"{rule}[ "]', tests)], [])


class PackTest(Case):
    def test_bytes_do_not_depend_on_place_time_zone_umask_or_locale(self):
        self.pack()
        first = tree_of(self.resources)
        elsewhere = self.directory / 'elsewhere'
        shutil.copytree(self.site, elsewhere / 'site')
        self.site = elsewhere / 'site'
        for path in self.site.rglob('*'):
            os.utime(path, (1, 1))
        output = elsewhere / 'output'
        output.mkdir()
        self.pack(output=output, umask=0o077,
                  env={'TZ': 'Asia/Tokyo', 'LC_ALL': 'C', 'LANG': 'de_DE.UTF-8'})
        self.assertEqual(tree_of(output), first)

    def test_bytes_do_not_depend_on_user_or_order_of_directory_entries(self):
        self.pack()
        first = tree_of(self.resources)
        copy = self.directory / 'copy'
        for path in sorted(self.site.rglob('*'), reverse=True):
            target = copy / path.relative_to(self.site)
            if path.is_file():
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(path.read_bytes())
        self.site = copy
        output = self.directory / 'output'
        output.mkdir()
        output.chmod(0o777)
        self.pack(output=output, **as_ordinary_user())
        self.assertEqual(tree_of(output), first)

    def test_other_tools_find_all_65536_entries(self):
        for number in range(65535):
            (self.site / str(number)).mkdir()
        shutil.rmtree(self.site / 'css')
        self.pack('--exclude', '*.html')
        with zipfile.ZipFile(self.package) as archive:
            self.assertEqual(len(archive.namelist()), 65536)
        listed = subprocess.run(['unzip', '-Z1', self.package], check=True, capture_output=True)
        self.assertEqual(len(listed.stdout.splitlines()), 65536)

    def test_other_tools_unpack_the_same_tree(self):
        self.pack()
        for tool in (['unzip', '-q', self.package, '-d'], ['bsdtar', '-xf', self.package, '-C']):
            target = self.directory / tool[0]
            target.mkdir()
            subprocess.run([*tool, target], check=True, env={**os.environ, 'LC_ALL': 'C.UTF-8'})
            self.assertEqual(tree_of(target), tree_of(self.site), tool)
        with zipfile.ZipFile(self.package) as archive:
            self.assertIsNone(archive.testzip())

    def test_entries_state_their_types_and_modes(self):
        self.pack()
        with zipfile.ZipFile(self.package) as archive:
            for info in archive.infolist():
                self.assertEqual((info.create_system, info.create_version), (3, 20))  # Unix
                self.assertEqual(info.external_attr, 0o40755 << 16 | 0x10 if info.is_dir()
                                 else 0o100644 << 16, info)

    def test_entries_have_the_time_of_the_source_date(self):
        self.pack(env={'SOURCE_DATE_EPOCH': '1000000000'})
        with zipfile.ZipFile(self.package) as archive:
            times = {info.date_time for info in archive.infolist()}
        self.assertEqual(times, {(2001, 9, 9, 1, 46, 40)})

    def test_check_accepts_the_result(self):
        self.pack()
        result = run('check', '--prove', self.directory / 'X.app')
        self.assertEqual((result.returncode, result.stderr), (0, ''), result.stdout)

    def test_full_disk_leaves_the_old_output_and_no_other_file(self):
        self.pack()
        before = tree_of(self.resources)
        (self.site / 'more').write_bytes(os.urandom(100000))
        result = self.pack(status=2, restore_signals=False, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_FSIZE, (20000, 20000)))
        self.assertRegex(result.stderr, 'cannot write .*OrloWebResources.zip.*: File too large')
        self.assertEqual(tree_of(self.resources), before)

    def test_interrupted_run_leaves_the_old_output_and_no_other_file(self):
        self.pack()
        before = tree_of(self.resources)
        for i in range(3000):
            (self.site / str(i)).write_bytes(os.urandom(3000))
        process = subprocess.Popen(
            [COMMAND, 'pack', self.site, '--update-id', '8', '--output', self.resources],
            stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True)
        while process.poll() is None and len(tree_of(self.resources)) < 4:
            pass
        process.terminate()
        self.assertIn('interrupted', process.communicate()[1])
        self.assertEqual(process.returncode, 2)
        self.assertEqual(tree_of(self.resources), before)

    def test_interruption_inside_a_file_of_2_gib_leaves_nothing(self):
        (self.site / 'A').touch()  # the first entry
        os.truncate(self.site / 'A', 2 << 30)  # a sparse file
        for number in (signal.SIGINT, signal.SIGTERM):
            process = subprocess.Popen(
                [COMMAND, 'pack', self.site, '--update-id', '8', '--output', self.resources],
                stderr=subprocess.PIPE, text=True,
                preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
            while process.poll() is None and len(tree_of(self.resources)) < 2:
                pass
            process.send_signal(number)
            self.assertIn('/A: interrupted', process.communicate()[1])
            self.assertEqual((process.returncode, tree_of(self.resources)), (2, {}))

    def test_file_of_a_killed_run_is_removed_by_the_next_run(self):
        for i in range(3000):
            (self.site / str(i)).write_bytes(os.urandom(3000))
        process = subprocess.Popen(
            [COMMAND, 'pack', self.site, '--update-id', '8', '--output', self.resources])
        while process.poll() is None and len(tree_of(self.resources)) < 2:
            pass
        process.kill()
        process.wait()
        self.assertEqual(len(tree_of(self.resources)), 2)
        self.pack()
        self.assertEqual(sorted(tree_of(self.resources)), ['OrloWebResources.zip', 'metadata.txt'])

    def test_two_concurrent_runs_leave_a_complete_bundle(self):
        for i in range(300):
            (self.site / str(i)).write_bytes(os.urandom(3000))
        processes = [subprocess.Popen([COMMAND, 'pack', self.site, '--update-id', '8', '--output',
                                       self.resources], stdout=subprocess.DEVNULL)
                     for _ in range(8)]
        self.assertEqual([process.wait() for process in processes], [0] * 8)
        self.assertEqual(sorted(tree_of(self.resources)), ['OrloWebResources.zip', 'metadata.txt'])
        self.assertEqual(self.check_ids(), [])

    def test_directory_that_does_not_exist_is_an_error_that_names_it(self):
        shutil.rmtree(self.site)
        self.assertRegex(self.pack(status=2).stderr, f'cannot read {self.site}: No such file')

    def test_refusals_name_each_file_and_write_nothing(self):
        (self.site / 'link').symlink_to('index.html')
        os.mkfifo(self.site / 'fifo')
        output = self.pack(status=1).stdout
        self.assertRegex(output, r'\[link-entry\] link:')
        self.assertRegex(output, r'\[special-file\] fifo:')
        self.assertEqual(tree_of(self.resources), {})

    def test_progress_is_shown_on_a_terminal_only(self):
        self.assertEqual(self.pack().stderr, '')
        for i in range(50):  # more files than columns of the bar
            (self.site / str(i)).touch()
        (self.site / 'large').write_bytes(os.urandom(2 << 20))
        for command, purposes in (
                (['pack', self.site, '--update-id', '7', '--output', self.resources], [b'packing']),
                (['check', '--prove', self.resources],
                 [b'reading the package', b'reading what is installed',
                  b'reading OrloWebResources.zip'])):
            for arguments, shown in (([], True), (['--quiet'], False)):
                bars = output_on_a_terminal([COMMAND, *command, *arguments], 'stderr',
                                            stdout=subprocess.DEVNULL)
                self.assertRegex(bars,  # complete at the end, and then removed
                                 rb'(?s)^\r\[# {39}\].*\r\[#{40}\][^\r]*\r\x1b\[K$'
                                 if shown else rb'^$')
                for purpose in purposes:
                    complete = b'\r[' + b'#' * 40 + b'] ' + purpose + b'\r'
                    self.assertEqual(complete in bars, shown, purpose)
                # A wider bar would wrap, and each step would leave a line on the terminal.
                self.assertLess(max(map(len, bars.split(b'\r'))), 80)

    def test_metadata_that_cannot_be_written_completely_is_an_error(self):
        result = run('pack', self.site, '--update-id', '7', '--output', self.resources,
                     preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10, 10)),
                     restore_signals=False)  # Python ignores the signal by default
        self.assertEqual(result.returncode, 2, result.stdout)
        self.assertIn('File too large', result.stderr)
        self.assertEqual(os.listdir(self.resources), [])


class CheckTest(Case):
    def test_packages_of_three_other_tools_trigger_nothing(self):
        (self.site / 'b\u00e4r').unlink()
        self.write_metadata()
        for tool in (['zip', '-qr', self.package, '.'], [SEVEN_ZIP, 'a', '-tzip', self.package, '.'],
                     ['bsdtar', '-caf', self.package, '.']):
            self.package.unlink(missing_ok=True)
            subprocess.run(tool, cwd=self.site, check=True, stdout=subprocess.DEVNULL)
            result = run('check', '--prove', self.resources)
            self.assertEqual(result.returncode, 0, result.stdout)

    def test_text_output_has_the_entries_the_findings_and_the_summary(self):
        self.write_archive([('a', '1'), ('a~', '')])
        finding = ("warning [junk-file] a~: it is an editor's backup\n"
                   '    fix: pack it again without the file, as pack does\n')
        digest = hashlib.sha256(self.package.read_bytes()).hexdigest()
        self.assertEqual(run('check', self.resources).stdout,
                         f'file               1  a\nfile               0  a~\n{finding}'
                         f'SHA-256: {digest}\n'
                         'directories: 0, files: 2, skipped: 0\n'
                         'clear: false, updateid: 7, regenerate: false\n'
                         'a run exits with 0 when all is done\n')
        self.assertEqual(run('check', '--quiet', self.resources).stdout, finding)

    def test_bundle_contents_and_resources_are_the_same(self):
        self.pack()
        for path in ('X.app', 'X.app/', 'X.app/Contents', 'X.app/Contents/Resources'):
            self.assertEqual(run('check', self.directory / path).returncode, 0, path)

    def test_info_pack_and_check_report_the_same_digest_of_the_package(self):
        packed = json.loads(self.pack('--json').stdout)
        told = json.loads(run('info', self.directory / 'X.app', '--json').stdout)
        digest = hashlib.sha256(self.package.read_bytes()).hexdigest()
        self.assertEqual(told['package'], {'files': packed['package']['files'],
                                           'bytes': packed['package']['bytes'], 'sha256': digest})
        self.assertEqual(told['metadata'], {'clear': False, 'updateid': 7, 'regenerate': False})
        self.assertEqual(packed['package']['sha256'], digest)
        checked = json.loads(run('check', self.directory / 'X.app', '--json').stdout)
        self.assertEqual(checked['sha256'], digest)
        self.assertIn(digest, run('info', self.resources).stdout)
        (self.resources / 'metadata.txt').write_text('{}')
        self.assertIn('updateid:   missing\n', run('info', self.resources).stdout)
        self.assertIn('updateid: missing', run('check', self.resources).stdout)
        self.package.unlink()
        self.assertEqual(run('info', self.resources).returncode, 2)
        self.assertIsNone(json.loads(run('check', self.resources, '--json').stdout)['sha256'])

    def test_half_of_a_package_is_a_finding(self):
        self.pack()
        self.package.write_bytes(self.package.read_bytes()[:20000])
        self.assertEqual(self.check_ids(), ['package-unreadable'])

    def test_missing_files_are_findings(self):
        self.assertEqual(self.check_ids(), ['package-missing', 'metadata-missing'])

    def test_missing_path_gives_status_2(self):
        result = run('check', self.directory / 'nowhere')
        self.assertEqual(result.returncode, 2)
        self.assertRegex(result.stderr, 'cannot read .*nowhere: No such file or directory')

    def test_file_in_place_of_a_bundle_gives_status_2(self):
        self.assertEqual(run('check', self.site / 'index.html').returncode, 2)

    def test_unreadable_package_and_directory_give_status_2(self):
        self.pack()
        for path in (self.package, self.resources / 'metadata.txt', self.resources):
            mode = stat.S_IMODE(path.stat().st_mode)
            path.chmod(0)
            result = run('check', self.resources, **as_ordinary_user())
            path.chmod(mode)
            self.assertEqual(result.returncode, 2, result.stdout)
            self.assertIn('Permission denied; run it as root\n', result.stderr)

    def test_directory_that_cannot_be_listed_or_entered_gives_status_2(self):
        self.pack()
        for path in (self.resources, self.directory / 'X.app'):
            for mode in (0o111, 0o444):
                self.resources.chmod(mode)
                result = run('check', path, **as_ordinary_user())
                self.assertEqual(result.returncode, 2, (path, oct(mode), result.stdout))
                self.assertIn('Permission denied; run it as root\n', result.stderr)
        self.resources.chmod(0o755)
        self.assertEqual(run('check', self.directory / 'X.app', **as_ordinary_user()).returncode, 0)

    def test_fifo_in_the_place_of_a_file_does_not_hang(self):
        for name in ('OrloWebResources.zip', 'metadata.txt'):
            self.pack()
            (self.resources / name).unlink()
            os.mkfifo(self.resources / name)
            self.assertEqual(run('check', self.resources).returncode, 2)
            (self.resources / name).unlink()

    def write_package_of_755_gigabytes(self):
        """Writes an entry of 690 MB when extracted, and 1094 entries that share its data."""
        deflate = zlib.compressobj(9, wbits=-15)
        block = bytes(1 << 20)
        data = b''.join(deflate.compress(block) for _ in range(658)) + deflate.flush()
        fields = (20, 0, 8, 0, 0x21, 0, len(data), 658 << 20, 5, 0)
        local = struct.pack('<L5H3L2H', 0x04034b50, *fields) + b'00000' + data
        central = b''.join(struct.pack('<L6H3L5H2L', 0x02014b50, 20, *fields, 0, 0, 0, 0, 0)
                           + b'%05d' % number for number in range(1095))
        end = struct.pack('<L4H2LH', 0x06054b50, 0, 0, 1095, 1095, len(central), len(local), 0)
        self.package.write_bytes(local + central + end)
        self.write_metadata()

    def test_small_zip_bomb_of_755_gigabytes_is_refused_in_seconds(self):
        self.write_package_of_755_gigabytes()
        self.assertLess(self.package.stat().st_size, 959_000)
        for options in ([], ['--prove'], ['--json']):
            start = time.monotonic()
            result = run('check', *options, self.resources)
            self.assertLess(time.monotonic() - start, 10)
            self.assertEqual(result.returncode, 1)
            self.assertIn('content-too-large', result.stdout)
            self.assertIn('overlapping-entries', result.stdout)

    def test_user_can_set_the_largest_size(self):
        self.pack()
        for size, status in (('1K', 1), ('40k', 0), ('0', 1), ('1G', 0), ('3', 1)):
            self.assertEqual(run('check', '--max-size', size, self.resources).returncode, status)
        for size in ('', '-1', 'x', '1X'):
            self.assertEqual(run('check', '--max-size', size, self.resources).returncode, 64, size)

    def test_scratch_directory_is_gone_after_each_signal(self):
        self.write_archive([(f'{i:05}', 'x' * 4000) for i in range(20000)])
        scratch = self.directory / 'scratch'
        scratch.mkdir()
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process = subprocess.Popen([COMMAND, 'check', '--prove', self.resources],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                       env={**os.environ, 'TMPDIR': str(scratch)}, text=True,
                                       preexec_fn=heed_signals)
            while process.poll() is None and not list(scratch.glob('*/Resource0/0*')):
                pass
            while process.poll() is None:  # also while the files are removed
                process.send_signal(number)
            self.assertIn('interrupted', process.communicate()[1])
            self.assertEqual((process.returncode, list(scratch.iterdir())), (2, []))

    def interrupt(self, process, path):
        """Sends SIGTERM to the process while it has the file open. Returns the file."""
        file = None
        while process.poll() is None and file is None:
            for name in os.listdir(f'/proc/{process.pid}/fd'):
                with contextlib.suppress(OSError):
                    link = f'/proc/{process.pid}/fd/{name}'
                    file = open(link, 'rb') if re.fullmatch(path, os.readlink(link)) else file
        process.send_signal(signal.SIGTERM)
        return file

    def test_trial_extraction_is_stopped_inside_a_file_of_2_gib(self):
        size = 2 << 30
        common = struct.pack('<HHHHHLLLHH', 20, 0, 0, 0, 0x21, 0, size, size, 1, 0)
        with (self.resources / 'OrloWebResources.zip').open('wb') as package:
            package.write(b'PK\3\4' + common + b'A')
            package.seek(size, os.SEEK_CUR)  # takes no room on the disk
            begin = package.tell()
            package.write(b'PK\1\2\x14\3' + common + bytes(14) + b'A')
            package.write(b'PK\5\6' + struct.pack('<HHHHLLH', 0, 0, 1, 1, package.tell() - begin,
                                                  begin, 0))
        scratch = self.directory / 'scratch'
        scratch.mkdir()
        process = subprocess.Popen([COMMAND, 'check', '--prove', self.resources],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                   env={**os.environ, 'TMPDIR': str(scratch)}, text=True)
        with self.interrupt(process, f'{scratch}/.*/A') as file:
            self.assertIn('interrupted', process.communicate()[1])
            self.assertLess(os.fstat(file.fileno()).st_size, size)
        self.assertEqual((process.returncode, list(scratch.iterdir())), (2, []))

    def test_verification_is_stopped_inside_a_file_of_2_gib(self):
        root = self.directory / 'host'
        installed = root / INSTALL_ROOT / 'Resource0'
        installed.mkdir(parents=True)
        (installed / 'A').touch()
        os.truncate(installed / 'A', 2 << 30)
        (root / RECORD).parent.mkdir(parents=True)
        (root / RECORD).write_bytes(plistlib.dumps(
            {'tWebResourceInstallPath': 'Resource0', 'iUpdateId': 7,
             'tFullVersion': full_version(7), 'irandom': 1}))
        receipt = {'tool': 'webresources', 'version': '1', 'format': 1, 'state': 'installed',
                   'time': 'x', 'product': pathlib.Path(RECORD).name.removesuffix('.plist'),
                   'updateId': 7, 'packageSha256': '0' * 64,
                   'tree': [{'type': 'directory', 'path': '.', 'mode': '0755'},
                            {'type': 'file', 'path': 'A', 'size': 2 << 30, 'sha256': '0' * 64,
                             'mode': '0644'}]}
        (installed.parent.parent / 'WebResources.receipt.json').write_text(json.dumps(receipt))
        process = subprocess.Popen([COMMAND, 'verify', '--root', root], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, text=True)
        with self.interrupt(process, f'{installed}/A'):
            self.assertIn('/A: interrupted', process.communicate()[1])
        self.assertEqual(process.returncode, 2)

    def test_names_cannot_send_control_characters_to_the_terminal(self):
        self.write_archive([('\x1b[31mred', 'x'), ('a\nb', 'x')])
        output = run('check', self.resources).stdout
        self.assertNotIn('\x1b', output)
        self.assertIn('\\x1B[31mred', output)

    def test_findings_are_coloured_on_a_terminal_without_no_color_only(self):
        self.write_archive([('missing/a', 'x'), ('.DS_Store', 'x')])
        for environment, coloured in (({'TERM': 'xterm'}, True), ({'TERM': 'dumb'}, False), ({}, False),
                                      ({'TERM': 'xterm', 'NO_COLOR': '1'}, False),
                                      ({'TERM': 'xterm', 'NO_COLOR': ''}, True)):
            shown = output_on_a_terminal([COMMAND, 'check', self.resources],
                                         env={'PATH': os.environ['PATH'], **environment})
            for colour in (b'\x1b[31merror', b'\x1b[33mwarning'):
                self.assertEqual(colour in shown, coloured, environment)
        self.assertNotIn('\x1b', run('check', self.resources, env={'TERM': 'xterm'}).stdout)

    def test_full_output_is_an_error(self):
        self.pack()
        for arguments in ([self.resources], ['--json', self.resources], ['--json', 'nowhere']):
            with open('/dev/full', 'w', encoding='ascii') as full:
                result = subprocess.run([COMMAND, 'check', *arguments], stdout=full,
                                        stderr=subprocess.PIPE, check=False)
            self.assertEqual(result.returncode, 2)
            self.assertIn(b'cannot write the standard output', result.stderr)


class JsonTest(Case):
    SCHEMA = json.loads((SOURCE / 'Documentation/webresources.schema.json').read_text())

    def document(self, *arguments, **options):
        result = run(*arguments, '--json', **options)
        document = json.loads(result.stdout)
        jsonschema.Draft7Validator(self.SCHEMA).validate(document)
        self.assertEqual(document['command'], arguments[0])
        self.assertEqual(document['status'], result.returncode)
        return document

    def test_every_command_writes_a_document_of_the_schema(self):
        pack = ('pack', self.site, '--update-id', '7', '--output', self.resources)
        (self.site / '.DS_Store').touch()
        self.assertEqual(self.document(*pack)['package']['files'], 5)
        check = self.document('check', '--prove', self.resources)
        self.assertTrue(check['proof']['agrees'])
        self.assertEqual(check['outcome']['end'], 'exit')
        self.document('info', self.resources)
        self.document('diff', self.resources, self.resources)
        self.document('status', '--root', self.directory)
        self.document('verify', '--root', self.directory, self.resources)
        self.assertTrue(self.document('installcheck', '--root', self.directory,
                                      self.resources)['installNeeded'])
        (self.site / 'link').symlink_to('x')
        self.assertEqual(self.document(*pack)['findings'][0]['id'], 'link-entry')

    def test_errors_are_documents_too(self):
        for arguments in (('check', 'nowhere'), ('verify', 'nowhere'),
                          ('pack', 'nowhere', '--update-id', '7', '--output', self.resources)):
            error = self.document(*arguments)['error']
            self.assertEqual(error, {'operation': 'read', 'object': 'nowhere', 'remedy': None,
                                     'reason': 'No such file or directory'})
        self.document('installcheck', 'nowhere')

    def test_source_date_of_any_bytes_is_an_error_with_a_document(self):
        for date, printable in (('today', 'today'), (b'\xff\n', r'\xFF\x0A')):
            error = self.document('pack', self.site, '--update-id', '7', '--output',
                                  self.resources, env={'SOURCE_DATE_EPOCH': date})['error']
            self.assertEqual((error['object'], error['reason']),
                             ('SOURCE_DATE_EPOCH', f'it is not a number of seconds: {printable}'))

    def test_name_that_is_not_utf8_is_complete_in_hexadecimal(self):
        self.write_archive([('X', 'x')])
        self.package.write_bytes(self.package.read_bytes().replace(b'X', b'\xe4'))
        document = self.document('check', self.resources)
        self.assertEqual(document['entries'][0]['name'], '\\xE4')
        self.assertEqual(document['tree'][0]['pathHex'], 'e4')
        self.assertEqual(document['findings'][0]['subjectHex'], 'e4')

    def test_control_characters_are_escaped(self):
        self.write_archive([('a\x7f\x85\x9b\u202e', 'x')])
        output = run('check', '--json', self.resources).stdout
        self.assertFalse(set(output) & set('\x7f\x85\x9b\u202e'))
        self.assertEqual(json.loads(output)['tree'][0]['path'], 'a\x7f\x85\x9b\u202e')
        self.assertFalse(set(run('check', self.resources).stdout) & set('\x7f\x85\x9b\u202e'))

    def test_tree_gives_size_and_checksum(self):
        self.write_archive([('f', 'hello')])
        self.assertEqual(self.document('check', self.resources)['tree'],
                         [{'type': 'file', 'path': 'f', 'size': 5, 'crc32': '3610a686'}])


class UsageTest(Case):
    def test_wrong_usage_is_64(self):
        for arguments in ([], ['unknown'], ['--unknown'], ['check'], ['check', '--unknown', '.'],
                          ['pack', self.site], ['installcheck'], ['status', '--root', ''],
                          ['check', ''], ['verify', ''], ['diff', '.', ''], ['help', 'unknown'],
                          ['pack', self.site, '--update-id', 'x', '--output', self.resources],
                          *(['pack', self.site, '--update-id', number, '--output', self.resources]
                            for number in ('', '010', '0x7', '+7', '1000000000'))):
            result = run(*arguments)
            self.assertEqual((result.returncode, result.stdout), (64, ''), arguments)
            self.assertNotEqual(result.stderr, '')

    def test_error_of_a_mistyped_option_names_the_option_alone(self):
        for arguments in (['--unknown'], ['check', '--unknown', '.'],
                          ['install', '--unknown', 'x', 'y']):
            self.assertEqual(run(*arguments).stderr,
                             'webresources: there is no option --unknown\n')

    def test_error_of_a_mistyped_command_suggests_a_command(self):
        for typed, meant in (('instal', 'install'), ('verfy', 'verify'), ('stats', 'status')):
            self.assertIn(f'Did you mean {meant}?', run(typed).stderr)
        self.assertNotIn('Did you mean', run('unknown').stderr)
        self.assertIn('there is no command unknown', run('unknown').stderr)

    def test_wrong_usage_cannot_send_control_characters_to_the_terminal(self):
        for arguments in (['\x1b[31m'], ['check', '--\x9b31m'], ['check', '.', '\x7f\x85\x9b']):
            complaint = run(*arguments).stderr
            self.assertNotEqual(complaint, '')
            self.assertFalse(set(complaint) & set('\x1b\x9b\x7f\x85'), arguments)

    def test_error_and_reason_cannot_speak_to_the_terminal(self):
        controls = set('\x1b\x9b\x7f\x85')
        root = self.site / 'root\x1b[31m\x9b\x7f\x85'
        (root / 'Library').mkdir(parents=True)
        (root / 'Library').chmod(0o777)  # the reason names the command, with the path
        result = run('status', '--root', root)
        self.assertIn('chmod go-w', result.stdout)
        self.assertFalse(set(result.stdout) & controls)
        document = json.loads(run('status', '--json', '--root', root).stdout)
        reasons = [finding['reason'] for finding in document['findings']]
        self.assertTrue(any('chmod go-w' in reason for reason in reasons))
        self.assertFalse(set(''.join(reasons)) & controls)
        result = run('info', '--json', root / 'none')
        self.assertIn('none', result.stderr)
        self.assertFalse(set(result.stderr + result.stdout) & controls)

    def test_path_that_is_too_long_is_told(self):
        path = '/' + './' * 2500
        for arguments in (['check', path], ['info', path], ['diff', path, path], ['plan', path],
                          ['verify', path], ['verify', '--root', path], ['status', '--root', path],
                          ['uninstall', '--root', path], ['installcheck', path],
                          ['pack', self.site, '--update-id', '7', '--output', path]):
            result = run(*arguments)
            self.assertEqual(result.returncode, 2, arguments[0])
            self.assertTrue('File name too long' in result.stderr + result.stdout, arguments[0])

    def test_tree_that_is_too_deep_to_be_packed_is_told(self):
        depth, name = 25, 'd' * 200
        parents = [os.open(self.site, os.O_RDONLY)]
        for _ in range(depth):
            os.mkdir(name, dir_fd=parents[-1])
            parents.append(os.open(name, os.O_RDONLY, dir_fd=parents[-1]))
        result = run('pack', self.site, '--update-id', '7', '--output', self.resources)
        self.assertEqual(result.returncode, 2, result.stdout)
        self.assertIn('File name too long', result.stderr)
        self.assertEqual(os.listdir(self.resources), [])
        for directory in reversed(parents):
            os.close(directory)

    @unittest.skipIf(IS_SANITIZED, 'the sanitizers need more stack themselves')
    def test_stack_that_is_too_small_is_told(self):
        for size, status in ((512 << 10, 2), (1 << 20, 0)):
            result = run('pack', self.site, '--update-id', '7', '--output', self.resources,
                         preexec_fn=lambda limit=size: resource.setrlimit(
                             resource.RLIMIT_STACK,
                             (limit, resource.getrlimit(resource.RLIMIT_STACK)[1])))
            self.assertEqual(result.returncode, status, result.stderr)
        self.assertEqual(os.listdir(self.resources) != [], True)

    def test_error_names_the_missing_or_unknown_word(self):
        self.assertIn('subcommand is required', run().stderr)
        for arguments in (['--unknown'], ['--unknown', 'status'], ['--json', '--unknown'],
                          ['status', '--unknown']):
            self.assertIn(' --unknown\n', run(*arguments).stderr)
        self.assertIn('--root: the name is empty', run('status', '--root', '').stderr)
        self.assertIn('Did you mean install?', run('help', 'instal').stderr)

    def test_help_lists_the_options_in_order(self):
        output = ('--json Write one JSON document --quiet Say nothing but findings and errors '
                  '--all List all findings, also many of one rule')
        size = '--max-size Refuse a package that can hold more (default: 4G)'
        modes = '--ignore-modes Do not compare modes and owners'
        root = "--root Where the installed system's files are"
        plan = (f'BUNDLE The bundle to install {output} --force Run the installer even if nothing would '
                f'change --allow-downgrade Install over a newer update {modes} {size}')
        installed = f'BUNDLE The bundle that should be installed {output} {root} {modes} {size}'
        wait = '--wait How long to wait while another installation runs (default: 600)'
        expected = {
            'pack': f'DIRECTORY The content to pack {output} '
                    '--update-id The update number, from -99999999 to 999999999 '
                    '--output A bundle, or its Resources directory '
                    '--clear Remove keys of other programs from the record first '
                    '--regenerate Draw a new random identifier '
                    '--exclude Leave out files that match GLOB '
                    '--follow Pack the targets of symbolic links '
                    '--keep Pack files that match GLOB, even junk '
                    '--require Refuse if there is no such file '
                    '--create Write to any directory, make it if missing '
                    '--allow-warnings Refuse after errors only',
            'check': f'BUNDLE_OR_RESOURCES A bundle, or its Resources directory {output} '
                     f'--prove Also extract into a scratch directory, compare {size}',
            'info': f'BUNDLE_OR_RESOURCES A bundle, or its Resources directory {output}',
            'diff': f'BEFORE A bundle AFTER The bundle that replaces it {output} {size}',
            'plan': f'{plan} {root}',
            'install': f'{plan} --dry-run Change nothing, show the changes (as plan) {wait}',
            'verify': installed,
            'installcheck': installed,
            'status': f'{output} {root} {modes}',
            'uninstall': f'{output} {root} --dry-run Change nothing, show the files to remove '
                         f'{wait}',
        }
        option = re.compile(
            r'^ {2,10}(?!-h)(--[\w-]+|[A-Z_]+)(?: .*?)?(?:\n +|  +| REQUIRED )([A-Z].*\w\)?) *$',
            re.MULTILINE)
        for command in COMMANDS:
            text = run(command, '--help').stdout
            text = text.replace('NUMBER REQUIRED ', 'REQUIRED ')
            self.assertEqual(' '.join(' '.join(each) for each in option.findall(text)),
                             expected[command])

    def test_help_and_version_are_no_errors(self):
        for arguments in (['--help'], ['--version'], ['pack', '--help']):
            self.assertEqual(run(*arguments).returncode, 0, arguments)
        self.assertEqual(run('-V').stdout, run('--version').stdout)

    def test_help_is_a_command_too(self):
        self.assertEqual(run('help').stdout, run('--help').stdout)
        for command in COMMANDS:
            self.assertEqual(run('help', command).stdout, run(command, '--help').stdout)

    def test_form_of_the_output_may_precede_the_command(self):
        self.pack()
        for option in OUTPUT:
            self.assertEqual(run(option, 'check', self.resources).stdout,
                             run('check', option, self.resources).stdout)
        self.assertEqual(json.loads(run('--json', 'check', self.resources).stdout)['status'], 0)


class EndToEndTest(Case):
    """Packs, checks, runs the shipped installer in a chroot, and verifies."""

    def install(self):
        root = self.directory / 'root'
        bundle = root / 'WebResourceInstaller.app'
        if not bundle.exists():
            shutil.copytree(PREFIX / bundle.name, bundle)
        for path in self.resources.iterdir():
            shutil.copy(path, bundle / 'Contents/Resources')
        installer = '/WebResourceInstaller.app/Contents/MacOS/WebResourceInstaller'
        subprocess.run(command_in(root, installer, proc=IS_SANITIZED), check=True)
        return root

    def status(self, command, *arguments):
        return run(command, '--root', self.directory / 'root', *arguments).returncode

    def test_packed_files_are_installed_and_verified(self):
        self.pack()
        root = self.install()
        installed = root / INSTALL_ROOT / 'Resource0'
        self.assertEqual(tree_of(installed), tree_of(self.site))
        self.assertEqual(self.status('verify', self.resources), 0)
        self.assertEqual(self.status('verify'), 0)
        self.assertEqual(self.status('installcheck', self.resources), 1)

        (installed / 'index.html').write_text('changed')
        self.assertEqual(self.status('verify', self.resources), 1)
        self.assertEqual(self.status('installcheck', self.resources), 0)
        self.install()
        self.assertEqual(self.status('verify', self.resources), 0)

        (self.site / 'new').write_text('new')
        self.pack()
        self.assertEqual(self.status('installcheck', self.resources), 0)

    def test_predicted_tree_is_the_tree_of_the_shipped_installer(self):
        self.write_archive([('css/', ''), ('css/a', 'a'), ('implied/a', 'x'), ('../out', 'x'),
                            ('/absolute', 'x'), ('css/a', 'again'), ('css', 'x'), ('b/./', '')])
        predicted = json.loads(run('check', '--json', self.resources).stdout)['tree']
        installed = self.install() / INSTALL_ROOT / 'Resource0'
        self.assertEqual(
            {item['path']: item.get('crc32') for item in predicted},
            {path: data if data is None else f'{zlib.crc32(data):08x}'
             for path, data in tree_of(installed).items()})

    @unittest.skipIf(IS_SANITIZED, 'large: runs without sanitizers')
    def test_real_web_package_has_the_same_bytes_everywhere_and_unpacks_with_every_tool(self):
        self.site = WEB_PACKAGE
        self.pack()
        elsewhere = self.directory / 'elsewhere'
        output = elsewhere / 'output'
        output.mkdir(parents=True)
        # The copy is made in reverse, so that the directory entries have another order on the disk.
        for path in sorted(WEB_PACKAGE.rglob('*'), reverse=True):
            if path.is_file():
                copy = elsewhere / 'site' / path.relative_to(WEB_PACKAGE)
                copy.parent.mkdir(parents=True, exist_ok=True)
                copy.write_bytes(path.read_bytes())
                copy.chmod(0o700)
        self.site = elsewhere / 'site'
        self.pack(output=output, umask=0o077, cwd=elsewhere,
                  env={'TZ': 'Asia/Tokyo', 'LC_ALL': 'C', 'LANG': 'de_DE.UTF-8'})
        self.assertEqual(tree_of(output), tree_of(self.resources))

        packed = tree_of(WEB_PACKAGE)
        self.assertGreater(len(packed), 3000)
        unpacked = elsewhere / 'unpacked'
        for tool in (['unzip', '-q', self.package, '-d', unpacked],
                     ['bsdtar', '-xf', self.package, '-C', unpacked],
                     [SEVEN_ZIP, 'x', f'-o{unpacked}', self.package]):
            unpacked.mkdir()
            subprocess.run(tool, check=True, stdout=subprocess.DEVNULL)
            self.assertTrue(tree_of(unpacked) == packed, tool)
            shutil.rmtree(unpacked)
        root = self.install()
        self.assertTrue(tree_of(root / INSTALL_ROOT / 'Resource0') == packed)
        self.assertEqual(self.status('verify', self.resources), 0)

    def test_file_that_an_ordinary_user_may_not_read_is_reported_with_the_remedy(self):
        self.pack()
        self.package.chmod(0)
        result = run('check', '--json', self.resources, **as_ordinary_user())
        self.assertEqual(json.loads(result.stdout)['error']['remedy'], 'run it as root')

    def test_unreadable_installation_gives_status_2(self):
        self.pack()
        root = self.install()
        installed = root / INSTALL_ROOT / 'Resource0'
        for path in (root / INSTALL_ROOT, installed, installed / 'index.html'):
            path.chmod(0)
            result = run('verify', '--root', root, self.resources, **as_ordinary_user())
            path.chmod(0o755)
            self.assertEqual(result.returncode, 2, result.stdout)
            self.assertIn('Permission denied', result.stderr)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
