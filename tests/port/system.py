"""A modem simulator, the daemon and serial ports in a folder of their own, and programs on pseudo-terminals."""
import contextlib
import fcntl
import os
import pathlib
import re
import select
import signal
import struct
import subprocess
import termios
import time


class Fault(Exception):
    pass


def until(condition, what, seconds=30):
    """Waits for a condition and returns its value."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise Fault(f"{what}: not within {seconds} s")
        time.sleep(0.02)


class Terminal:
    """A program in front of a person: what it shows, and keys to press."""

    def __init__(self, command, **options):
        self.master, slave = os.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
        self.shown = b""
        self.seen = 0
        self.process = subprocess.Popen(command, stdin=slave, stdout=slave, stderr=slave, start_new_session=True,
                                        preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0), **options)
        os.close(slave)

    def press(self, keys):
        os.write(self.master, keys)

    def read(self, seconds=0.1):
        if select.select([self.master], [], [], seconds)[0]:
            with contextlib.suppress(OSError):  # EIO: it has ended
                self.shown += os.read(self.master, 65536)

    def is_raw(self):
        """Whether the program reads single keys; until then the terminal collects a line."""
        return not termios.tcgetattr(self.master)[3] & termios.ICANON

    def expect(self, pattern, seconds=20):
        """Waits for a pattern behind what was found before."""
        end = time.monotonic() + seconds
        while True:
            found = re.search(pattern, self.shown[self.seen:], re.DOTALL)
            if found:
                self.seen += found.end()
                return found
            if time.monotonic() > end or (self.process.poll() is not None and not self.more()):
                raise Fault(f"{pattern!r} is not in {self.shown[self.seen:][-400:]!r}")
            self.read()

    def more(self):
        before = len(self.shown)
        self.read()
        return len(self.shown) > before

    def end(self, seconds=10):
        """Waits for its end and returns the exit status."""
        end = time.monotonic() + seconds
        while self.process.poll() is None and time.monotonic() < end:
            self.read()
        if self.process.poll() is None:
            raise Fault("it does not end")
        return self.process.returncode

    def close(self):
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        os.close(self.master)


class System:
    def __init__(self, build, folder):
        self.build = build
        self.folder = pathlib.Path(folder)
        self.folder.chmod(0o751)  # programs that become another user can still reach their port
        (self.folder / "run").mkdir(mode=0o750)
        self.started = []
        self.log = self.folder / "modem.log"
        self.environment = os.environ | {"VLK_RUNTIME_DIR": str(self.folder / "run"), "LC_ALL": "C.UTF-8",
                                         "VLK_AT_DEVICE": str(self.folder / "modem"), "HOME": str(self.folder)}
        self.modem = self.start([build / "sim/modemsim", "--link", self.folder / "modem", "--no-reports", "--log", self.log],
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.modem.stdout.readline()
        self.daemon = None
        self.start_daemon()

    def start_daemon(self):
        self.daemon = self.start([self.build / "src/vorlink"], stderr=open(self.folder / "daemon.log", "a"))
        self.vlkctl("status", "--wait-ready", "20")

    def start(self, command, **options):
        process = subprocess.Popen([str(part) for part in command], env=self.environment, **options)
        self.started.append(process)
        return process

    def run(self, *command, seconds=60, check=True, **options):
        """Runs a program to its end and returns what it printed."""
        done = subprocess.run([str(part) for part in command], env=self.environment, timeout=seconds, text=True,
                              errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
        if check and done.returncode != 0:
            raise Fault(f"{command[0]} ended with {done.returncode}: {done.stdout[-600:]}")
        return done.stdout

    def vlkctl(self, *command, **options):
        return self.run(self.build / "client/vlkctl", *command, **options)

    def control(self, line):
        """A control line for the simulator; its answer."""
        print(line, file=self.modem.stdin, flush=True)
        answer = self.modem.stdout.readline().strip()
        if answer.startswith("error"):
            raise Fault(answer)
        return answer

    def port(self, name):
        """Starts a port and returns its link."""
        link = self.folder / name
        process = self.start([self.build / "client/vlkctl", "port", link], stdout=subprocess.PIPE,
                             stderr=open(self.folder / "ports.log", "a"), text=True)
        if not process.stdout.readline().startswith("/dev/pts/"):
            raise Fault(f"no port {name}: {(self.folder / 'ports.log').read_text()}")
        return str(link)

    @contextlib.contextmanager
    def terminal(self, *command):
        shown = Terminal([str(part) for part in command], env=self.environment | {"TERM": "vt100"}, cwd=self.folder)
        try:
            yield shown
        finally:
            shown.close()

    def close(self):
        for process in reversed(self.started):
            if process.poll() is None:
                process.terminate()
        for process in reversed(self.started):
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()

    def sent_texts(self):
        """The texts of the messages that the modem has sent, in order, as far as they are GSM 7-bit."""
        received = re.findall(r"^ *\d+\.\d+ < (.*)$", self.log.read_text(errors="replace"), re.MULTILINE)
        pdus = re.findall(r"AT\+CMGS=\d+\\r((?:(?!\\r).)*?)\\x1A", "".join(received))
        return [text_of(pdu) for pdu in pdus]


def text_of(pdu):
    """The text of a SUBMIT PDU of one part in the basic GSM alphabet, in which digits and letters are ASCII."""
    octets = bytes.fromhex(pdu)
    at = 1 + octets[0]
    first = octets[at]
    digits = octets[at + 2]
    at += 4 + (digits + 1) // 2 + 2 + (0, 7, 1, 7)[first >> 3 & 3]
    bits = int.from_bytes(octets[at + 1:], "little")
    return "".join(chr(bits >> 7 * i & 0x7F) for i in range(octets[at]))
