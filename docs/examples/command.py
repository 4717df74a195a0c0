#!/usr/bin/env python3
"""Sends one AT command to the daemon without the client library: command.py AT+CSQ [PREFIX]"""
import os, socket, struct, sys

RECORD = struct.Struct("<iIIIIii64s1540si")  # Id, req_type, ..., timeout, at_match_str, cmd, cmd_len: 1636 bytes
prefix = sys.argv[2].encode() if len(sys.argv) > 2 else b""
daemon = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
daemon.connect(os.environ.get("VLK_RUNTIME_DIR", "/run/vlk") + "/commands")
daemon.send(RECORD.pack(0, 0, 0, 0, 1, 0, 10, prefix, sys.argv[1].encode(), 0))
reply = daemon.recv(RECORD.size)
ret_val, length = struct.unpack_from("<iI", reply, 1592)
print(reply[92 : 92 + min(length, 1500)].decode(errors="replace"))
sys.exit(0 if ret_val == 2 else 1)
