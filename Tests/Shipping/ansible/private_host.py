"""Connects Ansible to a chroot on this machine."""

import pathlib
import shutil
import subprocess

from ansible.plugins.connection import ConnectionBase

DOCUMENTATION = """
    name: private_host
    short_description: a directory that its programs see as "/"
    description: the host's address is the directory
    options: {}
"""

PRIVATE_ROOT = pathlib.Path(__file__).resolve().parents[3] / "script/lib/private-root"


class Connection(ConnectionBase):
    transport = "private_host"
    has_pipelining = True

    def _connect(self):
        return self

    def exec_command(self, cmd, in_data=None, sudoable=True):
        result = subprocess.run(
            [PRIVATE_ROOT, "run", "--system", self._play_context.remote_addr, "/bin/sh", "-c", cmd],
            input=in_data or b"", stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        return result.returncode, result.stdout, result.stderr

    def put_file(self, in_path, out_path):
        shutil.copyfile(in_path, self._play_context.remote_addr + out_path)

    def fetch_file(self, in_path, out_path):
        shutil.copyfile(self._play_context.remote_addr + in_path, out_path)

    def close(self):
        pass
