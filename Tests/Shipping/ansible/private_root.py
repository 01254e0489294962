"""Connects Ansible to a private root on this machine, which has the machine's programs in it."""

import os
import shutil
import subprocess

from ansible.plugins.connection import ConnectionBase

DOCUMENTATION = """
    name: private_root
    short_description: a directory that its programs take for "/"
    description: the host's address is the directory
    options: {}
"""

ENTER = """
set -e
for shared in usr dev proc; do
  mkdir -p "$0/$shared"
  mount --rbind "/$shared" "$0/$shared"
done
mount -o remount,bind,ro "$0/usr"
exec chroot "$0" /bin/sh -c "$1"
"""


class Connection(ConnectionBase):
    transport = "private_root"
    has_pipelining = True

    def _connect(self):
        return self

    def exec_command(self, cmd, in_data=None, sudoable=True):
        user = [] if os.getuid() == 0 else ["--map-root-user"]
        result = subprocess.run(
            ["unshare", "--mount", *user, "sh", "-c", ENTER, self._play_context.remote_addr, cmd],
            input=in_data or b"", stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        return result.returncode, result.stdout, result.stderr

    def put_file(self, in_path, out_path):
        shutil.copyfile(in_path, self._play_context.remote_addr + out_path)

    def fetch_file(self, in_path, out_path):
        shutil.copyfile(self._play_context.remote_addr + in_path, out_path)

    def close(self):
        pass
