# SPDX-License-Identifier: Apache-2.0
"""The relay does what its options say, and the same for the same seed."""

import contextlib
import socket
import subprocess
import threading
import time

import pytest

import warm_bmc
import weather

PATIENCE = 20


@contextlib.contextmanager
def udp_echo():
    """A server that sends each datagram back."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as server:
        server.bind(("127.0.0.1", 0))

        def serve():
            while True:
                data, client = server.recvfrom(2048)
                if data == b"end":
                    return
                server.sendto(data, client)

        thread = threading.Thread(target=serve)
        thread.start()
        try:
            yield server.getsockname()[1]
        finally:
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as last:
                last.sendto(b"end", server.getsockname())
            thread.join()


@contextlib.contextmanager
def tcp_giver(content):
    """A server that sends the same to everybody, and closes."""
    with socket.create_server(("127.0.0.1", 0)) as server:

        def serve():
            with contextlib.suppress(OSError):
                while True:
                    client, _ = server.accept()
                    with client, contextlib.suppress(OSError):
                        client.sendall(content)
                        client.shutdown(socket.SHUT_WR)
                        client.settimeout(PATIENCE)
                        while client.recv(1024):
                            pass

        thread = threading.Thread(target=serve, daemon=True)
        thread.start()
        try:
            yield server.getsockname()[1]
        finally:
            server.shutdown(socket.SHUT_RDWR)
            thread.join()


def answers(port, count, seconds=1.0):
    """What comes back for so many datagrams."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        client.connect(("127.0.0.1", port))
        client.settimeout(seconds)
        for number in range(count):
            client.send(b"%d" % number)
            time.sleep(0.001)
        found = []
        with contextlib.suppress(TimeoutError):
            while True:
                found.append(int(client.recv(2048)))
        return found


def received(port):
    """Everything that a connection gives, and how it ended."""
    with socket.create_connection(("127.0.0.1", port), PATIENCE) as client:
        client.settimeout(PATIENCE)
        content = b""
        try:
            while data := client.recv(65536):
                content += data
        except ConnectionResetError:
            return content, "reset"
        return content, "closed"


def decided(seed):
    """The decisions over 60 datagrams, each way's own."""
    options = ["--seed", seed, "--loss", 0.2, "--duplicate", 0.2, "--reorder", 0.2, "--delay", "0..5"]
    with udp_echo() as port, weather.Relay("udp", port, *options) as relay:
        answers(relay.port, 60, 0.5)
        lines = relay.decisions()
        return [line for line in lines if line.startswith("up")], [
            line for line in lines if line.startswith("down")]


def test_the_same_seed_decides_the_same():
    up, down = decided("7")
    again_up, again_down = decided("7")
    other_up, _ = decided("8")

    assert len(up) == 60
    assert up == again_up
    common = min(len(down), len(again_down))
    assert common > 30 and down[:common] == again_down[:common]
    assert up != other_up
    for word in ("lost", "twice", "late 5"):
        assert any(word in line for line in up), word


def test_without_options_everything_passes():
    with udp_echo() as port, weather.Relay("udp", port) as relay:
        assert answers(relay.port, 20, 0.5) == list(range(20))


def test_datagrams_are_lost():
    with udp_echo() as port, weather.Relay("udp", port, "--loss", 1) as relay:
        assert answers(relay.port, 5, 0.3) == []


def test_the_first_datagrams_may_be_left_alone():
    options = ["--loss", 1, "--begin-after", 3]
    with udp_echo() as port, weather.Relay("udp", port, *options) as relay:
        assert answers(relay.port, 5, 0.3) == [0, 1, 2]


def test_datagrams_come_twice_in_one_direction():
    options = ["--duplicate", 1, "--direction", "down"]
    with udp_echo() as port, weather.Relay("udp", port, *options) as relay:
        assert sorted(answers(relay.port, 3, 0.5)) == [0, 0, 1, 1, 2, 2]


def test_datagrams_change_places():
    with udp_echo() as port, weather.Relay("udp", port, "--reorder", 0.3, "--seed", 3) as relay:
        found = answers(relay.port, 20, 0.5)
        assert found != sorted(found)
        assert sorted(found) == list(range(20))


def test_datagrams_are_late():
    with udp_echo() as port, weather.Relay("udp", port, "--delay", 100) as relay:
        began = time.monotonic()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
            client.connect(("127.0.0.1", relay.port))
            client.settimeout(PATIENCE)
            client.send(b"1")
            client.recv(16)
        assert time.monotonic() - began >= 0.2


def test_a_server_that_is_not_there_is_silence():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as unused:
        unused.bind(("127.0.0.1", 0))
        port = unused.getsockname()[1]
    with weather.Relay("udp", port) as relay:
        assert answers(relay.port, 3, 0.3) == []
        assert len(relay.decisions()) == 3


def test_a_connection_passes_whole():
    content = bytes(range(256)) * 4096
    with tcp_giver(content) as port, weather.Relay("tcp", port) as relay:
        assert received(relay.port) == (content, "closed")


@pytest.mark.parametrize("how, end", [("close", "closed"), ("reset", "reset")])
def test_a_connection_is_cut_to_the_byte(how, end):
    options = ["--cut-after", 70001, "--cut-how", how]
    with tcp_giver(bytes(200000)) as port, weather.Relay("tcp", port, *options) as relay:
        content, ended = received(relay.port)
        assert ended == end
        # A reset may overtake what was sent before it.
        assert len(content) == 70001 if how == "close" else len(content) <= 70001
        assert f"1/down cut at 70001 {how}" in relay.decisions()


def test_a_stalled_connection_stays_open():
    options = ["--cut-after", 10, "--cut-how", "stall"]
    with tcp_giver(bytes(1000)) as port, weather.Relay("tcp", port, *options) as relay:
        with socket.create_connection(("127.0.0.1", relay.port), PATIENCE) as client:
            client.settimeout(0.5)
            assert len(client.recv(1000)) == 10
            with pytest.raises(TimeoutError):
                client.recv(1000)


def test_cuts_are_drawn_from_the_seed():
    options = ["--cut-after", "1000..90000", "--cut-share", 0.5, "--cut-how", "close", "--seed", 5]
    lengths = []
    for _ in range(2):
        with tcp_giver(bytes(100000)) as port, weather.Relay("tcp", port, *options) as relay:
            lengths.append([len(received(relay.port)[0]) for _ in range(8)])
    assert lengths[0] == lengths[1]
    assert 100000 in lengths[0]
    assert len(set(lengths[0])) > 2


def test_bytes_drip():
    with tcp_giver(bytes(100)) as port, weather.Relay("tcp", port, "--drip", "10/50") as relay:
        began = time.monotonic()
        assert received(relay.port) == (bytes(100), "closed")
        assert time.monotonic() - began >= 0.45


def test_bytes_drip_from_a_place_on():
    options = ["--drip", "1/100000", "--drip-after", 60]
    with tcp_giver(bytes(100)) as port, weather.Relay("tcp", port, *options) as relay:
        with socket.create_connection(("127.0.0.1", relay.port), PATIENCE) as client:
            client.settimeout(1)
            content = b""
            with contextlib.suppress(TimeoutError):
                while True:
                    content += client.recv(1000)
            assert len(content) == 61


def test_lost_blocks_come_late():
    options = ["--loss", 1, "--resend", 300, "--direction", "down"]
    with tcp_giver(b"x") as port, weather.Relay("tcp", port, *options) as relay:
        began = time.monotonic()
        assert received(relay.port) == (b"x", "closed")
        assert time.monotonic() - began >= 0.3
        assert relay.decisions() == ["1/down at 0 lost"]


@pytest.mark.parametrize("options", [
    ["tcp", "--to", "1", "--duplicate", "0.1"],
    ["udp", "--to", "1", "--cut-after", "5"],
    ["udp", "--to", "1", "--loss", "2"],
    ["tcp", "--to", "1", "--drip", "0/5"],
    ["icmp", "--to", "1"],
])
def test_options_without_sense_are_refused(options):
    ended = subprocess.run([warm_bmc.RELAY, *options], stdin=subprocess.DEVNULL,
                           capture_output=True, text=True, timeout=60, check=False)
    assert ended.returncode == 2
    assert "relay.py: error: " in ended.stderr
