"""A terminal for tests: a program on a screen of its own, typed to and looked at through tmux."""

import os
import pathlib
import shlex
import subprocess
import time

PATIENCE = 60  # seconds that something on the screen may take, on a slow machine and with sanitizers
LIFETIME = 900  # seconds after which a program ends that nobody has ended


class Terminal:
    """Runs a command in a terminal of a fixed size. `close` has to be called, and ends what still runs."""

    def __init__(self, directory, command, columns=72, rows=22):
        self._socket = pathlib.Path(directory) / "tmux"
        self._pid_file = pathlib.Path(directory) / "pid"
        # Not what is set up for the user who runs the tests, and the same width of each character as the program's.
        self._environment = {name: value for name, value in os.environ.items() if not name.startswith("TMUX")}
        self._environment |= {"LC_ALL": "C.UTF-8", "TERM": "screen-256color"}
        started = f"echo $$ > {shlex.quote(str(self._pid_file))}; exec \"$@\""
        script = ("echo before; stty -g; timeout --foreground {} sh -c {} sh {}; echo status $?; stty -g; sleep {}"
                  .format(LIFETIME, shlex.quote(started), shlex.join(map(str, command)), LIFETIME))
        self._tmux("-f", "/dev/null", "start-server", ";", "set-option", "-g", "default-terminal", "screen-256color",
                   ";", "set-option", "-s", "escape-time", "0", ";", "set-option", "-g", "status", "off",
                   ";", "new-session", "-d", "-x", str(columns), "-y", str(rows), "sh", "-c", script)

    def _tmux(self, *arguments):
        run = subprocess.run(["tmux", "-S", self._socket, *arguments], env=self._environment, capture_output=True,
                             text=True, encoding="utf-8", timeout=PATIENCE, check=False)
        if run.returncode != 0:
            raise RuntimeError(f"tmux {arguments[0]}: {run.stderr}")
        return run.stdout

    def close(self):
        self._tmux("kill-server")

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
        """The same with the escape sequences of colours and the like."""
        return self._tmux("capture-pane", "-p", "-e").split("\n")[:-1]

    def cursor(self):
        """Column and row of the cursor."""
        return tuple(map(int, self._tmux("display-message", "-p", "#{cursor_x} #{cursor_y}").split()))

    def process(self):
        """The number of the program's process."""
        return int(self._pid_file.read_text(encoding="ascii"))

    def wait_until(self, condition, expectation):
        """Waits until `condition` holds for the rows of the screen, and answers them."""
        end = time.monotonic() + PATIENCE
        while True:
            rows = self.rows()
            if condition(rows):
                return rows
            if time.monotonic() > end:
                raise AssertionError(f"{expectation}; the screen shows:\n" + "\n".join(rows))
            time.sleep(0.05)

    def wait_for(self, text):
        return self.wait_until(lambda rows: any(text in row for row in rows), f"{text!r} does not appear")

    def wait_until_gone(self, text):
        return self.wait_until(lambda rows: not any(text in row for row in rows), f"{text!r} does not go")
