"""Frames and capture files, no more elaborate than tests of the whole daemon need."""
import struct

SYN = 2


def ether(payload, kind=0x0800):
    return bytes(12) + struct.pack(">H", kind) + payload


def ipv4(protocol, payload, src=(10, 0, 0, 1), dst=(10, 0, 0, 2)):
    return ether(struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 0, 0, 64, protocol, 0, bytes(src), bytes(dst))
                 + payload)


def udp(payload, sport=1000, dport=80, **ends):
    return ipv4(17, struct.pack(">HHHH", sport, dport, 8 + len(payload), 0) + payload, **ends)


def udp_flows(count):
    """One frame for each of `count` flows, as large as a DNS query."""
    return [udp(bytes(30), 1024 + i % 60000, 53) for i in range(count)]


def tcp(payload, flags=0x10, sport=1000, dport=80):
    return ipv4(6, struct.pack(">HHIIBBHHH", sport, dport, 1, 0, 0x50, flags, 65535, 0, 0) + payload)


def icmp(payload, kind=8):
    return ipv4(1, struct.pack(">BBHI", kind, 0, 0, 0) + payload)


def arp():
    return ether(bytes(46), 0x0806)


def write_pcap(path, frames):
    path.write_bytes(pcap(frames, order="<"))
    return path


def read_pcap(path):
    content, at, found = path.read_bytes(), 24, []
    while at < len(content):
        size, = struct.unpack_from("<I", content, at + 8)
        found.append(content[at + 16:at + 16 + size])
        at += 16 + size
    return found


def pcap(frames, magic=0xa1b2c3d4, link=1, head=b"", cut=0, keep=65535, order=">"):
    """Each frame loses `cut` bytes at its start and gets `head` instead; at most `keep` bytes are in the file."""
    content = bytearray(struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 65535, link))
    for frame in (head + frame[cut:] for frame in frames):
        content += struct.pack(order + "IIII", 1700000000, 5, len(frame[:keep]), len(frame)) + frame[:keep]
    return bytes(content)


def pcapng(frames):
    content = struct.pack(">IIIHHqI", 0x0a0d0d0a, 28, 0x1a2b3c4d, 1, 0, -1, 28) + struct.pack(">IIHHII", 1, 20, 1, 0, 0, 20)
    for frame in frames:
        padding = -len(frame) % 4
        whole = 32 + len(frame) + padding
        content += struct.pack(">IIIIIII", 6, whole, 0, 0, 1000, len(frame), len(frame)) + frame + bytes(padding)
        content += struct.pack(">I", whole)
    return content


def erf(frames):
    return b"".join(struct.pack("<Q", 1700000000 << 32) + struct.pack(">BBHHH", 2, 4, 18 + len(f), 0, len(f)) + bytes(2) + f
                    for f in frames)
