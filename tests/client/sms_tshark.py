#!/usr/bin/python3
"""Lets the dissector of tshark (package tshark) read what the codec of short messages has written.

Usage: sms_tshark.py PROGRAM, the program being sms_peer. Exit code 77: tshark is not there.
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile

COUNT = 1000
USER_LINK = "147"  # a link type that tells nothing about what is in a packet
AS_MESSAGE = f'uat:user_dlts:"User 0 (DLT={USER_LINK})","gsm_sms","0","","0",""'
FIELDS = ["tp-mti", "tp-oa", "tp-da", "dis_field_addr.num_type", "sms_text", "dcs.character_set",
          "dcs.message_class_defined", "dcs.message_class", "udh.mm.msg_id", "udh.mm.msg_parts", "udh.mm.msg_part",
          "scts.year", "scts.month", "scts.day", "scts.hour", "scts.minutes", "scts.seconds", "scts.timezone"]
INTERNATIONAL = "1"
ALPHABETS = {0: "GSM 7-bit", 2: "UCS-2"}


def run(*arguments):
    return subprocess.run(arguments, capture_output=True, text=True, check=True, encoding="utf-8",
                          env={**os.environ, "LC_ALL": "C.UTF-8"}).stdout


def dissected(messages):
    """What tshark makes of the messages' TPDUs; those of type 1 go to the network."""
    with tempfile.TemporaryDirectory() as folder:
        with open(folder + "/dump", "w", encoding="ascii") as dump:
            for message in messages:
                pdu = bytes.fromhex(message["hex"])
                dump.write(("I" if message["type"] == 1 else "O") + " 000000 " + pdu[1 + pdu[0]:].hex(" ") + "\n")
        run("text2pcap", "-q", "-D", "-l", USER_LINK, folder + "/dump", folder + "/packets")
        wanted = [word for field in FIELDS for word in ("-e", "gsm_sms." + field)]
        packets = json.loads(run("tshark", "-r", folder + "/packets", "-o", AS_MESSAGE, "-o", "gsm_sms.reassemble:FALSE",
                                 "-T", "json", *wanted))
    return [{name.removeprefix("gsm_sms."): values[0] for name, values in packet["_source"]["layers"].items()}
            for packet in packets]


def in_our_words(seen):
    plus = "+" if seen.get("dis_field_addr.num_type") == INTERNATIONAL else ""
    has_class = seen.get("dcs.message_class_defined") in ("1", "True", True)
    part = [int(seen.get("udh.mm." + name, default))
            for name, default in (("msg_id", 0), ("msg_parts", 1), ("msg_part", 1))]
    time = ""
    if "scts.year" in seen:
        time = "20{year:02}-{month:02}-{day:02}T{hour:02}:{minutes:02}:{seconds:02}+00:00".format(
            **{name.removeprefix("scts."): int(value) for name, value in seen.items() if name.startswith("scts.")})
    character_set = int(seen.get("dcs.character_set", "0"), 0)  # none is told where the coding is 0
    return {"type": int(seen["tp-mti"]), "peer": plus + seen.get("tp-da", seen.get("tp-oa", "")),
            "text": seen.get("sms_text", ""), "alphabet": ALPHABETS.get(character_set),
            "class": int(seen["dcs.message_class"], 0) if has_class else -1, "part": part, "time": time}


def main():
    if shutil.which("tshark") is None or shutil.which("text2pcap") is None:
        print("skipped: tshark is missing; scripts/setup test installs it")
        return 77
    messages = [json.loads(line) for line in run(sys.argv[1], "make", "20240603", str(COUNT)).splitlines()]
    packets = dissected(messages)
    differences = 0
    for message, seen in zip(messages, packets):
        theirs = in_our_words(seen)
        message["part"] = message["part"][:3]  # the width of its number is not told
        wrong = {key: (message[key], theirs[key]) for key in theirs if message[key] != theirs[key]}
        if wrong:
            differences += 1
            print(f"{message['hex']}: ours, tshark's: {wrong}")
    print(f"{len(packets)} messages of ours read by tshark: {differences} differences")
    return 1 if differences or not len(messages) == len(packets) == COUNT else 0


sys.exit(main())
