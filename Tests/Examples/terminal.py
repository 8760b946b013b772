"""A terminal for tests: a program on a screen of its own, typed to and looked at through tmux."""

import os
import pathlib
import shlex
import signal
import subprocess
import time

PATIENCE = 60  # seconds that anything may take, on a slow machine and with sanitizers
LIFETIME = 900  # seconds after which a program ends that nobody has ended

# The shell that the program is started from, and that is there again when it has ended.
SHELL = """
echo before
stty -g > {directory}/stty-before
timeout --foreground {lifetime} sh -c 'echo $$ > "$0"; exec "$@"' {directory}/program {command}
status=$?
stty -g > {directory}/stty-after
echo status $status
: > {directory}/ended
sleep {lifetime}
"""


class Terminal:
    """Runs a command in a terminal of a size. `close` has to be called, and ends what still runs."""

    def __init__(self, directory, command, columns=72, rows=22):
        self._directory = pathlib.Path(directory)
        # Not what is set up for the user who runs the tests; and each character as wide as the program takes it for.
        self._environment = {name: value for name, value in os.environ.items() if not name.startswith("TMUX")}
        self._environment |= {"LC_ALL": "C.UTF-8", "TERM": "screen-256color"}
        shell = SHELL.format(directory=shlex.quote(str(directory)), lifetime=LIFETIME,
                             command=shlex.join(map(str, command)))
        self._tmux("-f", "/dev/null", "start-server", ";", "set-option", "-g", "default-terminal", "screen-256color",
                   ";", "set-option", "-s", "escape-time", "0", ";", "set-option", "-g", "status", "off",
                   ";", "new-session", "-d", "-x", str(columns), "-y", str(rows), "sh", "-c", shell)

    def _tmux(self, *arguments):
        run = subprocess.run(["tmux", "-S", self._directory / "tmux", *arguments], env=self._environment,
                             capture_output=True, text=True, encoding="utf-8", timeout=PATIENCE, check=False)
        if run.returncode != 0:
            raise RuntimeError(f"tmux {arguments[0]}: {run.stderr}")
        return run.stdout

    def close(self):
        """Ends the program, if it has not ended, and then the terminal."""
        end = time.monotonic() + PATIENCE
        while not self._has_ended() and time.monotonic() < end:
            if (self._directory / "program").exists():
                self.signal(signal.SIGKILL)
            time.sleep(0.05)
        self._tmux("kill-server")

    def _has_ended(self):
        return (self._directory / "ended").exists()

    def signal(self, number):
        """Sends the program a signal, unless it has ended."""
        try:
            os.kill(int((self._directory / "program").read_text(encoding="ascii")), number)
        except ProcessLookupError:
            pass

    def type(self, text):
        """Types a text as it stands."""
        self._tmux("send-keys", "-l", "--", text)

    def press(self, *keys):
        """Presses keys by tmux's names for them, such as Enter, PPage, C-d."""
        self._tmux("send-keys", "--", *keys)

    def resize(self, columns, rows):
        self._tmux("resize-window", "-x", str(columns), "-y", str(rows))

    def rows(self):
        """What the screen shows now, row by row, without the blanks at their ends."""
        return [row.rstrip() for row in self._tmux("capture-pane", "-p").split("\n")[:-1]]

    def styled_rows(self):
        """The same with the escape sequences of colours and the like, and with the blanks."""
        return self._tmux("capture-pane", "-p", "-e", "-N").split("\n")[:-1]

    def tells(self, name):
        """What tmux says of the terminal, by the name that it has for that, such as cursor_x."""
        return self._tmux("display-message", "-p", f"#{{{name}}}").rstrip("\n")

    def settings(self, when):
        """How the terminal was set "before" the program and "after" it."""
        return (self._directory / f"stty-{when}").read_text(encoding="ascii")

    def wait_until(self, condition, expectation):
        """Waits until a condition holds for the rows of the screen, and answers them. A screen that is still being
        painted is waited for."""
        end = time.monotonic() + PATIENCE
        shown = None
        while True:
            has_ended = self._has_ended()
            rows = self.rows()
            if condition(rows) and rows == shown:
                return rows
            shown = rows
            if has_ended:  # what it has written may yet come to the screen, but no more than that
                end = min(end, time.monotonic() + 10)
            if time.monotonic() > end:
                raise AssertionError(f"{expectation}; the screen shows:\n" + "\n".join(rows))
            time.sleep(0.1)

    def wait_for(self, text):
        return self.wait_until(lambda rows: any(text in row for row in rows), f"{text!r} does not appear")

    def wait_until_gone(self, text):
        return self.wait_until(lambda rows: not any(text in row for row in rows), f"{text!r} does not go")
