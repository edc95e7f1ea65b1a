"""Connections that nobody else can read."""

from __future__ import annotations

import subprocess

import pytest
from commands import json_of, tool


def openssl(*words: object) -> None:
    subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True)


def authority(folder, name: str):
    """Its certificate; the key is beside it."""
    path = folder / f"{name}.pem"
    openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
            "-keyout", folder / f"{name}.key", "-out", path, "-subj", f"/CN={name}", "-days", "2")
    return path


def certificate(folder, name: str, ca: str, address: str = "IP:127.0.0.1"):
    request, path = folder / f"{name}.csr", folder / f"{name}.pem"
    openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
            folder / f"{name}.key", "-out", request, "-subj", f"/CN={name}")
    extensions = folder / f"{name}.ext"
    extensions.write_text(f"subjectAltName={address}\n")
    openssl("x509", "-req", "-in", request, "-CA", folder / f"{ca}.pem", "-CAkey",
            folder / f"{ca}.key", "-CAcreateserial", "-out", path, "-days", "2", "-extfile",
            extensions)
    return path


@pytest.fixture(name="secure")
def _secure(fleet):
    """A server with a certificate, and the authorities."""
    folder = fleet.folder
    for name in ("ca", "other"):
        authority(folder, name)
    certificate(folder, "hub", "ca")

    def start(more: str = ""):
        hub = fleet.hub(f'tls {{ cert_file: "{folder}/hub.pem"\n key_file: "{folder}/hub.key"\n'
                        f'ca_file: "{folder}/ca.pem"\n {more} }}')
        hub.url = hub.url.replace("nats://", "tls://")
        return hub

    return start


def test_frames_over_tls(fleet, secure):
    hub = secure()
    ca = ("--ca", fleet.folder / "ca.pem")
    fleet.publish("line3", hub.url, "-t", "0.7", *ca).result()
    fleet.store(hub.url, "--strict", *ca)
    fleet.require_all()
    as_nats = json_of("fleet", "status", *ca, url=hub.url.replace("tls:", "nats:"), status=None)
    assert [sensor["sensor"] for sensor in as_nats["sensors"]] == ["line3"]


def test_a_server_that_is_another_is_refused(fleet, secure):
    hub = secure()
    for more in ((), ("--ca", fleet.folder / "other.pem")):
        done = tool("fleet", "status", *more, url=hub.url)
        assert done.returncode in (3, 4), done.stderr
        assert "certificate" in done.stderr.lower() or "SSL" in done.stderr, done.stderr


def test_a_certificate_for_another_machine_is_refused(fleet, secure):
    certificate(fleet.folder, "hub", "ca", "DNS:elsewhere.example")
    hub = secure()
    done = tool("fleet", "status", "--ca", fleet.folder / "ca.pem", url=hub.url)
    assert done.returncode in (3, 4), done.stderr


def test_a_server_that_wants_certificates(fleet, secure):
    folder = fleet.folder
    hub = secure("verify: true")
    certificate(folder, "left", "ca")
    certificate(folder, "stranger", "other")
    ca = ("--ca", folder / "ca.pem")

    def status(name: str | None):
        own = ("--certificate", folder / f"{name}.pem", "--certificate-key",
               folder / f"{name}.key") if name else ()
        return tool("fleet", "status", *ca, *own, url=hub.url)

    assert "no sensor" in status("left").stdout
    for name in (None, "stranger"):
        assert status(name).returncode in (3, 4)
    # Of another certificate.
    mixed = tool("fleet", "status", *ca, "--certificate", folder / "left.pem", "--certificate-key",
                 folder / "stranger.key", url=hub.url)
    assert mixed.returncode in (3, 4, 6)
    assert "left.pem" in mixed.stderr
    half = tool("fleet", "status", *ca, "--certificate", folder / "left.pem", url=hub.url)
    assert (half.returncode, "--certificate-key" in half.stderr) == (2, True)


def test_files_that_are_not_there(fleet):
    for option in ("--ca", "--nkey", "--creds"):
        done = tool("fleet", "status", option, "/nonexistent.pem", url="nats://127.0.0.1:1")
        assert done.returncode == 6
        assert "/nonexistent.pem" in done.stderr
