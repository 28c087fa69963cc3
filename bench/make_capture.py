#!/usr/bin/env python3
"""Writes a pcap capture of one client calling the demo's Account.deposit
PAIRS times over one connection (GIOP 1.0, big-endian): a Request and its
Reply per call, each in a segment of its own, 50 microseconds apart. For
bench/record_bench.sh.

    python3 bench/make_capture.py PAIRS OUT.pcap
"""
import struct
import sys


def giop(kind, body):
    return b"GIOP\x01\x00\x00" + bytes([kind]) + struct.pack(">I", len(body)) + body


def align(body, n):
    # Alignment counts from the message's first byte, 12 before the body.
    return body + b"\0" * ((-(12 + len(body))) % n)


def request(i):
    b = struct.pack(">II", 0, i) + b"\x01"  # no contexts, id, response expected
    b = align(b, 4) + struct.pack(">I", 4) + b"acct"
    b = align(b, 4) + struct.pack(">I", 8) + b"deposit\0"
    b = align(b, 4) + struct.pack(">I", 0)  # principal
    b = align(b, 8) + struct.pack(">dI", 250.5, 0)  # Money: amount, currency
    return giop(0, b)


def reply(i):
    b = align(struct.pack(">III", 0, i, 0), 8) + struct.pack(">dI", 1000.5 + i, 0)
    return giop(1, b)


def main():
    pairs, path = int(sys.argv[1]), sys.argv[2]
    with open(path, "wb") as out:
        out.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 1))  # Ethernet

        def packet(t, up, seq, payload):
            client, server = b"\x7f\0\0\x01", b"\x7f\0\0\x02"
            src, dst = (client, server) if up else (server, client)
            ports = (40000, 2809) if up else (2809, 40000)
            tcp = struct.pack(">HHIIBBHHH", *ports, seq & 0xFFFFFFFF, 0, 5 << 4, 0x18, 65535, 0, 0)
            ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(tcp) + len(payload), 0, 0x4000,
                             64, 6, 0, src, dst)
            frame = b"\0" * 12 + b"\x08\x00" + ip + tcp + payload
            out.write(struct.pack("<IIII", t // 1000000, t % 1000000, len(frame), len(frame)))
            out.write(frame)

        up = down = 1
        t = 1_000_000
        for i in range(pairs):
            m = request(i)
            packet(t, True, up, m)
            up += len(m)
            m = reply(i)
            packet(t + 50, False, down, m)
            down += len(m)
            t += 100


if __name__ == "__main__":
    main()
