#!/usr/bin/python3
"""Compares the codec of short messages with that of gammu (package python3-gammu), in both directions.

Usage: sms_crosscheck.py PROGRAM, the program being sms_peer. Exit code 77: gammu is not there.
"""
import datetime
import json
import random
import subprocess
import sys

try:
    import gammu
except ImportError:
    print("skipped: gammu's module for python3 is missing; scripts/setup test installs it (python3-gammu)")
    sys.exit(77)

COUNT = 1000
GSM = ("@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿"
       "abcdefghijklmnopqrstuvwxyzäöñüà")
EXTENDED = "^{}\\[~]|€"
WORLD = "яЖñ漢字한글ไทยअरबعربי\U0001F600\U00010437"
CODINGS = {"GSM 7-bit": "Default_No_Compression", "UCS-2": "Unicode_No_Compression"}


def ask(arguments, lines=()):
    result = subprocess.run([sys.argv[1], *arguments], input="\n".join([*lines, ""]), capture_output=True, text=True,
                            check=True)
    return [json.loads(line) for line in result.stdout.splitlines()]


def in_utf16(text):
    """gammu's strings hold UTF-16 units: surrogates become the characters that they stand for."""
    return text.encode("utf-16-be", "surrogatepass").decode("utf-16-be", "replace")


def read_by_gammu(message):
    """What gammu makes of our PDU, in our words."""
    seen = gammu.DecodePDU(bytes.fromhex(message["hex"]), True)
    header = seen["UDH"]
    part = [0, 1, 1, False]
    if header["Type"] != "NoUDH":
        wide = header["ID16bit"] != -1
        part = [header["ID16bit"] if wide else header["ID8bit"], header["AllParts"], header["PartNumber"], wide]
    # Its length of a text with extensions counts their escapes: what stands behind the end is not the text's.
    text = in_utf16(seen["Text"])
    if message["alphabet"] == "GSM 7-bit":
        text = text.split("\0")[0]
    elif text == message["text"].replace("\1", "~"):  # its own way to show U+0001
        text = message["text"]
    time = seen["DateTime"]
    return {"type": {"Submit": 1, "Deliver": 0}[seen["Type"]], "peer": seen["Number"],
            "smsc": seen["SMSC"]["Number"], "text": text, "class": seen["Class"], "part": part,
            "alphabet": next(ours for ours, theirs in CODINGS.items() if theirs == seen["Coding"]),
            "time": time.strftime("%Y-%m-%dT%H:%M:%S+00:00") if message["type"] == 0 else ""}


def made_by_gammu(chance):
    """A random PDU of gammu's, and what it says in our words."""
    layout = chance.choice(["Submit", "Deliver"])
    coding = chance.choice(list(CODINGS))
    part = [0, 1, 1, False]
    header = {"Type": "NoUDH", "Text": b"", "ID8bit": -1, "ID16bit": -1, "PartNumber": -1, "AllParts": 0}
    if chance.random() < 0.5:
        wide = chance.random() < 0.5
        part = [chance.randrange(65536 if wide else 256), chance.randint(2, 255), 1, wide]
        part[2] = chance.randint(1, part[1])
        reference = part[0].to_bytes(2 if wide else 1, "big")
        element = bytes([8 if wide else 0, len(reference) + 2]) + reference + bytes(part[1:3])
        header = {"Type": "ConcatenatedMessages16bit" if wide else "ConcatenatedMessages",
                  "Text": bytes([len(element)]) + element, "ID8bit": -1 if wide else part[0],
                  "ID16bit": part[0] if wide else -1, "PartNumber": part[2], "AllParts": part[1]}
    if coding == "UCS-2":
        alphabet = (GSM + EXTENDED + WORLD).replace("~", "")  # which gammu takes for an escape of its own
        text = "".join(chance.choice(alphabet) for _ in range(chance.randint(0, 32)))
    else:
        text = "".join(chance.choice(GSM + EXTENDED) for _ in range(chance.randint(0, 75)))
    number = "1" + "".join(chance.choice("0123456789") for _ in range(chance.randint(2, 14)))  # 00 becomes +
    peer = chance.choice(["+", ""]) + number
    smsc = chance.choice(["", "+4917100001"])
    when = datetime.datetime(2000 + chance.randrange(60), 1 + chance.randrange(12), 1 + chance.randrange(28),
                             chance.randrange(24), chance.randrange(60), chance.randrange(60))
    message_class = chance.randint(-1, 3)
    pdu = gammu.EncodePDU({
        "SMSC": {"Location": 0, "Name": "", "Format": "Text", "Validity": "2D", "Number": smsc, "DefaultNumber": ""},
        "UDH": header, "Folder": 2, "InboxFolder": 0, "Memory": "", "Location": 0, "Name": "", "Number": peer,
        "Text": text, "Type": layout, "Coding": CODINGS[coding], "DateTime": when, "SMSCDateTime": when,
        "DeliveryStatus": 0, "ReplyViaSameSMSC": 0, "State": "UnSent", "Class": message_class, "MessageReference": 0,
        "ReplaceMessage": 0, "RejectDuplicates": 0, "Length": len(text)}, layout)
    return pdu.hex(), {"type": {"Submit": 1, "Deliver": 0}[layout], "peer": peer, "smsc": smsc, "text": text,
                       "class": message_class, "part": part, "alphabet": coding,
                       "time": when.strftime("%Y-%m-%dT%H:%M:%S+00:00") if layout == "Deliver" else ""}


def difference(what, hex_digits, ours, theirs):
    wrong = {key: (ours.get(key), theirs[key]) for key in theirs if ours.get(key) != theirs[key]}
    if wrong:
        print(f"{what} {hex_digits}: ours, gammu's: {wrong} {ours.get('error', '')}")
    return bool(wrong)


def main():
    differences = 0
    ours = ask(["make", "20240601", str(COUNT)])
    for message in ours:
        differences += difference("written by us", message["hex"], message, read_by_gammu(message))
    chance = random.Random(20240602)
    theirs = [made_by_gammu(chance) for _ in range(COUNT)]
    for (pdu, made), read in zip(theirs, ask(["read"], [pdu for pdu, _ in theirs])):
        differences += difference("written by gammu", pdu, read, made)
    print(f"{len(ours)} messages of ours and {len(theirs)} of gammu's: {differences} differences")
    return 1 if differences or len(ours) != COUNT else 0


sys.exit(main())
