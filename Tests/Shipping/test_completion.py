"""The completions in zsh and fish: they offer every command and option of the help, each with its
description. Tests/Tools/test_webresources.py tests bash, which shows no descriptions."""

import os
import pty
import re
import select
import termios
import unittest

from shipping import BUILD, ShippingTestCase, run

[PACKAGE] = (BUILD / "deb").glob("web-resource-installer_*.deb")
DEADLINE = 60  # seconds

# On the key A, zsh lists the offers for $LINE. On the key B, zsh ends.
ZSHRC = """
PS1=
autoload -U compinit && compinit -u -D
offer() { BUFFER=$LINE CURSOR=$#LINE; zle list-choices }
finish() { print; print THE-END; exit }
zle -N offer; bindkey A offer
zle -N finish; bindkey B finish
print READY
"""


class CompletionTestCase(ShippingTestCase):
    def setUp(self):
        super().setUp()
        run("dpkg-deb", "--extract", PACKAGE, self.directory)
        self.command = self.directory / "usr/bin/webresources"
        self.shared = self.directory / "usr/share"
        self.environment = {**os.environ, "PATH": f"{self.command.parent}:{os.environ['PATH']}"}

    def help(self, *command):
        return run(self.command, *command, "--help")

    def offered(self, line):
        """The offers of the shell for `line`: descriptions by names."""
        raise NotImplementedError

    def assert_offered(self, line, names, text):
        offered = self.offered(line)
        self.assertEqual(set(offered), set(names), line)
        for name, description in offered.items():  # on the line of the name, or on the next one
            self.assertRegex(text, rf"(?m)^ .*{name}\b.*(\n +| ){re.escape(description)}$")


class Offers:
    """Run for each of the shells."""

    def test_commands_and_options_of_the_help_with_their_descriptions(self):
        text = self.help()
        commands = re.findall(r"^  ([a-z]+) ", text, re.MULTILINE)
        self.assertGreater(len(commands), 9)
        self.assert_offered("webresources ", commands, text)
        self.assert_offered("webresources help ", commands, text)
        self.assert_offered("webresources --json ins", ["install", "installcheck"], text)
        self.assert_offered("webresources -", re.findall(r"--[a-z-]+", text), text)
        for command in commands:
            text = self.help(command)
            options = re.findall(r"^ +(?:-\w,)?(--[a-z-]+)", text, re.MULTILINE)
            self.assertIn("--help", options)
            self.assert_offered(f"webresources {command} --", options, text)
        self.assert_offered("webresources --quiet pack site --upd", ["--update-id"],
                            self.help("pack"))


class Fish(Offers, CompletionTestCase):
    def offered(self, line):
        completion = self.shared / "fish/vendor_completions.d/webresources.fish"
        output = run("fish", "--no-config", "-c", f"source {completion}; complete -C '{line}'",
                     env=self.environment, cwd=self.directory)
        return dict(offer.split("\t") for offer in output.splitlines())


class Zsh(Offers, CompletionTestCase):
    def offered(self, line):
        functions = self.shared / "zsh/vendor-completions"
        (self.directory / ".zshrc").write_text(f"fpath=({functions} $fpath)\n{ZSHRC}")
        child, terminal = pty.fork()
        if child == 0:
            termios.tcsetwinsize(0, (100, 200))  # each offer is one line
            os.execvpe("zsh", ["zsh", "-d", "-i"], {
                **self.environment, "TERM": "dumb", "ZDOTDIR": str(self.directory), "LINE": line})
        self.read_until(terminal, b"READY")
        os.write(terminal, b"AB")
        output = self.read_until(terminal, b"THE-END").decode()
        os.close(terminal)
        os.waitpid(child, 0)
        return dict(re.findall(r"^([a-z-]+) +-- (.*?) *\r$", output, re.MULTILINE))

    def read_until(self, terminal, end):
        output = b""
        while end not in output:
            self.assertTrue(select.select([terminal], [], [], DEADLINE)[0], output)
            output += os.read(terminal, 65536)
        return output


if __name__ == "__main__":
    unittest.main()
