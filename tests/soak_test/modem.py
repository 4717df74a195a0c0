#!/usr/bin/env python3
# The soak test's modem: a Unix socket that answers one command after the other. By chance it splits its lines, is
# slow, reports before, between and in the middle of answers, and is unplugged. Usage: modem.py SEED
import ctypes
import fcntl
import mmap
import os
import random
import select
import socket
import sys
import termios
import time

PAUSE_LIMIT = 0.2  # seconds; the proxy hands on what pauses longer than 0.3 inside a line

# What it answers; # is the number that the command or message ends with. To anything else: OK.
ANSWERS = {
    "AT+CSOAK=": ["+CSOAK: #", "OK"],
    "AT+CRAW=": ["+CRAW: #", "OK"],
    "AT+CTWO=": ["+CTWO: #,1", "+CTWO: #,2", "OK"],
    "AT+CWRONG=": ["+CME ERROR: #"],
    "AT+CMUTE=": [],
    "00110": ["+CMGS: #", "OK"],
}


# What a daemon that starts, or collects an answer that came late, says before anybody listens.
OWN_LINES = ["ATE0Q0V1", "AT+CMEE=1"]
OWN_ANSWERS = {"AT+CMEE?": "+CMEE: 1", "AT+CSCS?": '+CSCS: "GSM"', "AT+CMGF?": "+CMGF: 0"}


# The file that all processes write what they see to, as in client.cpp.
class Board(ctypes.Structure):
    # stop: clients come to their end, the modem neither reports nor is unplugged.
    # Odd while it is there: the daemon, until just before its end; the modem's line, from the first command on a
    # connection until its loss; the listener to the hub. Only one process changes each.
    # asks: the number of the last request; all have eight digits.
    # accounted: reports, by their number, that were heard or may have got lost.
    _fields_ = [(name, ctypes.c_uint32) for name in (
        "stop daemon line listener asks requests answered silent away reports heard last_heard missed unplugs").split()]
    _fields_ += [("accounted", ctypes.c_ubyte * (1 << 20))]

    @classmethod
    def open(cls):
        with open("board", "a+b") as file:
            file.truncate(ctypes.sizeof(cls))
            return cls.from_buffer(mmap.mmap(file.fileno(), 0))

    # They may have been cut, or lost with a daemon.
    def excuse_reports_after(self, number):
        for late in range(number + 1, self.reports + 1):
            self.accounted[late] = 1


class Modem:
    def __init__(self, seed):
        self.board = Board.open()
        self.chance = random.Random(seed)

    def one_in(self, chances):
        return self.chance.randrange(chances) == 0

    def play(self):
        listener = socket.socket(socket.AF_UNIX)
        listener.bind("modem")
        listener.listen(1)
        while True:
            self.unplug_at = time.monotonic() + self.chance.uniform(3, 10)
            while self.board.stop or time.monotonic() < self.unplug_at:
                if select.select([listener], [], [], 0.05)[0]:
                    self.serve(listener.accept()[0])
            os.rename("modem", "unplugged")
            self.board.unplugs += 1
            time.sleep(self.chance.uniform(0.05, 0.75))
            os.rename("unplugged", "modem")

    def serve(self, line):
        self.line, self.input, self.takes_message = line, "", False
        self.settled = self.board.reports  # the last report that the daemon has read for certain
        try:
            while True:
                self.note_settled()
                self.read_input()
                self.answer_input()
                self.report_perhaps(3)
        except ConnectionError:
            self.board.line += self.board.line % 2
        self.board.excuse_reports_after(self.settled)
        line.close()

    # The daemon has read everything when nothing is under way. With a daemon that died everything else is excused.
    def note_settled(self):
        unread = fcntl.ioctl(self.line, termios.TIOCOUTQ, b"\0\0\0\0")
        if not any(unread):
            self.settled = self.board.reports

    def lose_line_if(self, is_broken):
        if is_broken or (not self.board.stop and time.monotonic() >= self.unplug_at):
            raise ConnectionError

    def read_input(self):
        self.lose_line_if(False)
        if select.select([self.line], [], [], 0.005)[0]:
            received = self.line.recv(4096)
            self.lose_line_if(not received)
            self.input += received.decode("latin-1")

    def answer_input(self):
        while (end := "\x1a" if self.takes_message else "\r") in self.input:
            item, _, self.input = self.input.partition(end)
            if not self.takes_message and not item.startswith("AT"):
                continue  # the line end behind a message
            if item not in OWN_LINES and item not in OWN_ANSWERS:
                self.board.line |= 1
            self.takes_message = item.startswith("AT+CMGS=")
            self.report_perhaps(4)
            if self.takes_message:
                self.put("\r\n> ")
            else:
                self.answer(item)

    def answer(self, item):
        if item in OWN_ANSWERS:
            self.put(f"\r\n{OWN_ANSWERS[item]}\r\n")
        for line in next((lines for start, lines in ANSWERS.items() if item.startswith(start)), ["OK"]):
            if self.one_in(10):
                time.sleep(self.chance.uniform(0, 1.2 if self.one_in(30) else 0.02))
            self.put("\r\n" + line.replace("#", item[-8:]) + "\r\n")
            self.report_perhaps(4)

    def report_perhaps(self, chances):
        board = self.board
        if board.stop or board.listener % 2 == 0 or board.line % 2 == 0 or not self.one_in(chances):
            return
        if self.one_in(5):
            self.put("\r\n^RSSI: 0\r\n")  # what the daemon tells before the first one, too
        room = len(board.accounted) - 1 - board.reports
        for _ in range(min(room, 60 if self.one_in(50) else 1)):
            board.reports += 1
            self.put(f'\r\n^HCSQ: "LTE",{board.reports},0,0,0\r\n')

    # Writes what belongs together. A machine too busy to write it in time makes the modem lose its line.
    def put(self, text):
        size = self.chance.randint(1, 12) if self.one_in(2) else len(text)
        last = time.monotonic()
        for at in range(0, len(text), size):
            self.line.sendall(text[at : at + size].encode())
            self.lose_line_if(time.monotonic() - last > PAUSE_LIMIT)
            last = time.monotonic()
            if size < len(text) and self.one_in(4):
                time.sleep(self.chance.uniform(0, 0.0015))


if __name__ == "__main__":
    Modem(sys.argv[1]).play()
