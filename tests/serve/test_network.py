"""Other machines: addresses, token files, TLS."""

import http.client
import socket
import ssl
import subprocess

import pytest
from conftest import QUICK
from daemon import ANSWER_SECONDS, wait_until

TOKEN = "a-token.of_our-own-0123456789"


@pytest.fixture
def token_file(tmp_path):
    path = tmp_path / "token"
    path.write_text(TOKEN + "\n")
    path.chmod(0o600)
    return path


def refusal(daemons, *options) -> tuple[int, str]:
    daemon = daemons.launch(*options, **QUICK)
    return daemon.process.wait(ANSWER_SECONDS), daemon.output()


def other_address() -> str:
    """Of this machine, but not its loopback."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        try:
            probe.connect(("192.0.2.1", 9))  # sends nothing
        except OSError:
            pytest.skip("this machine has no other address than its loopback")
        return probe.getsockname()[0]


@pytest.mark.parametrize("address", ["0.0.0.0", "::", "192.0.2.1"])
def test_other_machines_are_not_served_without_a_token_file(daemons, address):
    status, said = refusal(daemons, "--listen", address)
    assert status == 2
    assert "--token-file" in said


def test_what_is_no_address_is_refused(daemons, token_file):
    status, said = refusal(daemons, "--listen", "sensor", "--token-file", token_file)
    assert status == 2
    assert "no address" in said


def test_localhost_is_not_said_to_be_reachable(daemons):
    assert daemons.start("--listen", "localhost", **QUICK).host == "127.0.0.1"


@pytest.mark.parametrize("port", ["-1", "65536", "http", "80.5"])
def test_what_is_no_port_is_refused(daemons, port):
    daemon = daemons.launch(port=port, **QUICK)
    assert daemon.process.wait(ANSWER_SECONDS) == 2
    assert "--port" in daemon.output()


@pytest.fixture
def reachable(daemons, token_file):
    return daemons.start("--listen", "0.0.0.0", "--token-file", token_file, **QUICK)


def test_other_machines_need_the_token_to_read(reachable):
    address = other_address()
    for path in ("/api/v1/state", "/metrics", "/api/v1/log", "/api/v1/stream/state"):
        assert reachable.request("GET", path, host=address).status == 401, path
    assert reachable.request("GET", "/api/v1/state", host=address, token=TOKEN).status == 200
    assert reachable.request("GET", "/api/v1/state", host="127.0.0.1").status == 200


def test_other_machines_get_the_page_without_the_token(reachable):
    answer = reachable.request("GET", "/", host=other_address())
    assert answer.status == 200
    assert TOKEN.encode() not in answer.body


def test_other_machines_open_a_stream_with_the_token_only(reachable):
    address = other_address()
    for protocols, status in (("tessaline.v1, token.wrong-wrong-wrong", 401),
                              (f"tessaline.v1, token.{TOKEN}", 101)):
        connection = http.client.HTTPConnection(address, reachable.port, timeout=ANSWER_SECONDS)
        connection.request("GET", "/api/v1/stream/state", headers={
            "Connection": "Upgrade", "Upgrade": "websocket", "Sec-WebSocket-Version": "13",
            "Sec-WebSocket-Key": "AAAAAAAAAAAAAAAAAAAAAA==", "Sec-WebSocket-Protocol": protocols})
        answer = connection.getresponse()
        assert answer.status == status
        if status == 101:
            assert answer.headers["Sec-WebSocket-Protocol"] == "tessaline.v1"
        connection.close()


def test_other_machines_cannot_guess_by_reading(reachable):
    address = other_address()
    got = [reachable.request("GET", "/api/v1/state", host=address, token=f"{number:016}").status
           for number in range(11)]
    assert got == [401] * 10 + [429]


def test_without_tls_the_daemon_warns(daemons, token_file):
    daemon = daemons.launch("--listen", "0.0.0.0", "--token-file", token_file, form=(), **QUICK)
    daemon.read_until(b"other commands")
    wait_until(lambda: "unencrypted" in daemon.errors.read_text())


def test_a_token_of_our_own_is_taken_and_not_printed(daemons, token_file):
    daemon = daemons.start("--token-file", token_file, **QUICK)
    assert daemon.token_file == token_file
    assert daemon.write("PUT", "laser", {"on": True})["laser"] is True
    assert daemon.end() == 0
    assert TOKEN not in daemon.output()
    assert token_file.read_text() == TOKEN + "\n"


@pytest.mark.parametrize("mode", [0o644, 0o604, 0o602, 0o666])
def test_a_token_that_others_may_read_is_refused(daemons, token_file, mode):
    token_file.chmod(mode)
    status, said = refusal(daemons, "--token-file", token_file)
    assert status == 2
    assert "chmod 600" in said and TOKEN not in said


@pytest.mark.parametrize("token", ["short", "", "with blanks in between", "0123456789/abcdef+",
                                   "x" * 257, "0123456789abcdef\0"])
def test_a_token_that_cannot_be_used_is_refused(daemons, token_file, token):
    token_file.write_text(token + "\n")
    status, said = refusal(daemons, "--token-file", token_file)
    assert status == 2
    assert "token" in said


@pytest.mark.parametrize("name", ["missing", "."])
def test_a_token_file_that_is_none_is_refused(daemons, tmp_path, name):
    status, said = refusal(daemons, "--token-file", tmp_path / name)
    assert status == 6
    assert "no token" in said


@pytest.fixture(scope="module")
def certificate(tmp_path_factory):
    """A certificate for 127.0.0.1 that nobody else has signed, and its key."""
    folder = tmp_path_factory.mktemp("certificate")
    certificate, key = folder / "certificate.pem", folder / "key.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
         "-nodes", "-days", "2", "-subj", "/CN=sensor", "-addext", "subjectAltName=IP:127.0.0.1",
         "-keyout", key, "-out", certificate],
        check=True, capture_output=True, timeout=30)
    return certificate, key


@pytest.fixture(scope="module")
def encrypted(module_daemons, certificate):
    file, key = certificate
    daemon = module_daemons.start("--certificate", file, "--key", key, **QUICK)
    daemon.tls = ssl.create_default_context(cafile=file)
    return daemon


def test_a_certificate_makes_it_https(encrypted):
    assert encrypted.url.startswith("https://127.0.0.1:")
    assert encrypted.get("state")["ready"] is True
    assert encrypted.write("PUT", "laser", {"on": True})["laser"] is True


def test_plain_http_is_not_served_there(encrypted):
    received = b""
    try:
        received = encrypted.exchange(b"GET /api/v1/state HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
    except ConnectionResetError:
        pass
    assert b"HTTP" not in received and b"model" not in received
    assert encrypted.get("state")["ready"] is True


@pytest.mark.filterwarnings("ignore:ssl.TLSVersion.TLSv1_1 is deprecated")
def test_old_versions_of_tls_are_refused(encrypted):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    context.set_ciphers("ALL:@SECLEVEL=0")
    context.minimum_version = context.maximum_version = ssl.TLSVersion.TLSv1_1
    with encrypted.connect() as plain, pytest.raises((ssl.SSLError, ConnectionError)):
        context.wrap_socket(plain)


def test_our_own_page_is_let_in_over_https(encrypted):
    assert encrypted.request("GET", "/api/v1/state", Origin=encrypted.url).status == 200


def test_many_requests_in_one_encrypted_connection_are_answered(encrypted):
    with encrypted.tls.wrap_socket(encrypted.connect(), server_hostname="127.0.0.1") as connection:
        request = b"GET /api/v1/limits HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
        connection.sendall(request * 19 + request.replace(b"1.1", b"1.0", 1))
        received = b""
        while piece := connection.recv(65536):
            received += piece
    assert received.count(b"200 OK") == 20


@pytest.mark.parametrize("options", [["--certificate"], ["--key"]])
def test_certificate_and_key_go_together(daemons, certificate, options):
    status, said = refusal(daemons, options[0], certificate[0])
    assert status == 2
    assert "go together" in said


def test_a_key_of_another_certificate_is_refused(daemons, certificate, tmp_path):
    other = tmp_path / "other.pem"
    subprocess.run(["openssl", "genpkey", "-algorithm", "EC", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-out", other],
                   check=True, capture_output=True, timeout=30)
    status, said = refusal(daemons, "--certificate", certificate[0], "--key", other)
    assert status == 6
    assert "certificate" in said


def test_the_socket_is_for_its_owner_only(reachable):
    """Or for a group, if the administrator has made one for that."""
    assert reachable.socket.stat().st_mode & 0o007 == 0
