"""Frames and capture files, as simple as the tests of the whole daemon need them."""
import struct

SYN = 2


def ether(payload, kind=0x0800):
    return bytes(12) + struct.pack(">H", kind) + payload


def ipv4(protocol, payload, src=(10, 0, 0, 1), dst=(10, 0, 0, 2)):
    return ether(struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 0, 0, 64, protocol, 0, bytes(src), bytes(dst))
                 + payload)


def udp(payload, sport=1000, dport=80):
    return ipv4(17, struct.pack(">HHHH", sport, dport, 8 + len(payload), 0) + payload)


def udp_flows(count):
    """A frame each of so many flows, as large as a DNS query."""
    return [udp(bytes(30), 1024 + i % 60000, 53) for i in range(count)]


def tcp(payload, flags=0x10, sport=1000, dport=80):
    return ipv4(6, struct.pack(">HHIIBBHHH", sport, dport, 1, 0, 0x50, flags, 65535, 0, 0) + payload)


def icmp(payload, kind=8):
    return ipv4(1, struct.pack(">BBHI", kind, 0, 0, 0) + payload)


def arp():
    return ether(bytes(46), 0x0806)


def write_pcap(path, frames):
    content = struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, 1)
    path.write_bytes(content + b"".join(struct.pack("<IIII", i, 0, len(f), len(f)) + f for i, f in enumerate(frames)))
    return path
