"""v4l2-compliance, v4l2-ctl and what builds on V4L2, on the capture devices of all boards."""

from __future__ import annotations

import re
import shutil
import struct

import pytest

SERIES = ["K3610", "K3620", "K3710", "K3720", "K3810", "K3820", "K3910", "K3920", "K4010", "K4020"]
CARDS = {"/dev/video0": "image stream", "/dev/video1": "strip stream"}
KINDS = {"/dev/video0": "images", "/dev/video1": "strips"}
models = pytest.mark.parametrize("model", SERIES)
nodes = pytest.mark.parametrize("node", CARDS)


def faults(output: str) -> str:
    """What v4l2-compliance complains about, or that it did not come to its end."""
    total = re.search(r"^Total for .*: (\d+), Succeeded: (\d+), Failed: 0, Warnings: 0$", output,
                      re.MULTILINE)
    if total and total[1] == total[2]:
        return ""
    bad = re.findall(r"^.*(?:\bfail:|\bwarn:|FAIL|Total for).*$", output, re.MULTILINE)
    return "\n".join(bad) or "it stopped early:\n" + output


def made(output: str, name: str) -> bool:
    """Whether the test was made: v4l2-compliance passes over what a driver does not have."""
    return re.search(rf"test {re.escape(name)}: OK$", output, re.MULTILINE) is not None


def needs(program: str) -> str:
    if shutil.which(program) is None:
        pytest.skip(f"{program} is not installed")
    return program


# --- Without frames.


@models
@nodes
def test_the_driver_complies(board, model, node):
    output = board(model).run("v4l2-compliance", "-d", node).stdout
    assert faults(output) == ""
    assert made(output, "VIDIOC_REQBUFS/CREATE_BUFS/QUERYBUF")
    assert made(output, "VIDIOC_EXPBUF")


@models
def test_both_devices_are_listed(board, model):
    listed = board(model).output("v4l2-ctl", "--list-devices")
    found = dict(re.findall(r"^(.+) \(platform:.*\):\n\t(\S+)$", listed, re.MULTILINE))
    assert {node: card for card, node in found.items()} == CARDS


@models
@nodes
def test_the_driver_says_what_it_is(board, model, node):
    shown = board(model).output("v4l2-ctl", "-d", node, "--all")
    assert re.search(rf"Card type\s+: {CARDS[node]}\n", shown)
    assert "Video Capture\n\t\tStreaming\n\t\tExtended Pix Format\n" in shown
    assert "Read/Write" not in shown
    assert "Video input : 0 (FPGA: ok)" in shown


@models
@nodes
def test_the_only_format_is_grey_of_any_size(board, model, node):
    shown = board(model).output("v4l2-ctl", "-d", node, "--list-formats-ext")
    assert re.findall(r"\[\d+\]: '(.*?)'", shown) == ["GREY"]
    assert "Size: Continuous 16x1 - 16384x16384" in shown


@models
@nodes
def test_a_format_is_set_and_read_back(board, model, node):
    shown = board(model).output("v4l2-ctl", "-d", node, "--get-fmt-video",
                                "--set-fmt-video=width=1000,height=500,pixelformat=GREY")
    assert re.search(r"Width/Height\s+: 1000/500\n", shown)
    assert re.search(r"Bytes per Line\s+: 1000\n", shown)
    assert re.search(r"Size Image\s+: 500000\n", shown)


@nodes
@pytest.mark.parametrize("option", ["--get-parm", "--get-standard", "--get-cropcap",
                                    "--log-status", "--get-selection=target=crop"])
def test_what_the_driver_does_not_have_is_no_ioctl_of_it(board, node, option):
    done = board("K3610").run("v4l2-ctl", "-d", node, option)
    assert "Inappropriate ioctl for device" in done.stdout + done.stderr


@nodes
@pytest.mark.parametrize("memory", ["--stream-mmap", "--stream-user"])
def test_a_stream_without_a_trigger_starts_and_waits(board, node, memory):
    needs("v4l2-ctl")
    done = board("K3610").run("timeout", "2", "v4l2-ctl", "-d", node, memory, "--stream-count=1",
                              "--verbose")
    assert done.returncode == 124, done.stdout + done.stderr
    assert "VIDIOC_STREAMON" in done.stderr


# --- With frames: another program has set up the sensor and the FPGA of a shared board.


@pytest.fixture
def streaming():
    """Makes a board with a running stream of images or strips."""
    sharing = pytest.importorskip("sharing", reason="boards cannot be shared")
    boards = []

    def make(model: str, node: str):
        boards.append(sharing.SharedBoard(model, "--pace", "free"))
        boards[-1].stream(KINDS[node])
        return boards[-1]

    yield make
    for shared in boards:
        shared.end()


def frame_bytes(shared, node: str) -> int:
    shown = shared.output(needs("v4l2-ctl"), "-d", node, "--get-fmt-video")
    return int(re.search(r"Size Image\s+: (\d+)", shown)[1])


def frame_size(shared, node: str) -> tuple[str, str]:
    shown = shared.output(needs("v4l2-ctl"), "-d", node, "--get-fmt-video")
    return re.search(r"Width/Height\s+: (\d+)/(\d+)", shown).groups()


@models
@nodes
def test_the_driver_complies_when_it_streams(streaming, model, node):
    shared = streaming(model, node)
    output = shared.result(needs("v4l2-compliance"), "-s", "-d", node).stdout.replace("\r", "\n")
    assert faults(output) == ""
    for test in ["MMAP (no poll)", "MMAP (select)", "MMAP (epoll)", "USERPTR (no poll)",
                 "USERPTR (select)"]:
        assert re.search(rf"test {re.escape(test)}: OK\s*$", output, re.MULTILINE), test


@models
@nodes
def test_frames_are_written_to_a_file(streaming, tmp_path, model, node):
    shared = streaming(model, node)
    for options in [["--stream-mmap"], ["--stream-user"], ["--stream-mmap", "--stream-poll"],
                    ["--stream-mmap", "--stream-lossless"], ["--stream-mmap=8", "--stream-skip=2"]]:
        file = tmp_path / "frames.raw"
        shared.output(needs("v4l2-ctl"), "-d", node, *options, "--stream-count=5",
                      f"--stream-to={file}")
        assert file.stat().st_size == 5 * frame_bytes(shared, node), options
        file.unlink()


@nodes
def test_ffmpeg_captures(streaming, tmp_path, node):
    shared = streaming("K3610", node)
    width, height = frame_size(shared, node)
    file = tmp_path / "frames.raw"
    shared.output(needs("ffmpeg"), "-loglevel", "error", "-f", "v4l2", "-input_format", "gray",
                  "-video_size", f"{width}x{height}", "-i", node, "-frames:v", "5",
                  "-f", "rawvideo", file)
    assert file.stat().st_size == 5 * frame_bytes(shared, node)


@nodes
@pytest.mark.parametrize("mode", ["auto", "mmap", "dmabuf"])
def test_gstreamer_captures(streaming, tmp_path, node, mode):
    shared = streaming("K3610", node)
    width, height = frame_size(shared, node)
    file = tmp_path / "frames.raw"
    shared.output(needs("gst-launch-1.0"), "-q", "v4l2src", f"device={node}", f"io-mode={mode}",
                  "num-buffers=5", "!", f"video/x-raw,format=GRAY8,width={width},height={height}",
                  "!", "filesink", f"location={file}")
    assert file.stat().st_size == 5 * frame_bytes(shared, node)


@nodes
def test_gstreamer_makes_a_picture(streaming, tmp_path, node):
    shared = streaming("K3610", node)
    width, height = frame_size(shared, node)
    file = tmp_path / "frame.png"
    shared.output(needs("gst-launch-1.0"), "-q", "v4l2src", f"device={node}", "num-buffers=1", "!",
                  f"video/x-raw,format=GRAY8,width={width},height={height}", "!", "pngenc", "!",
                  "filesink", f"location={file}")
    picture = file.read_bytes()
    assert picture[:8] == b"\x89PNG\r\n\x1a\n" and picture.endswith(b"IEND\xaeB`\x82")
    # Size, bits a sample, kind: grey.
    assert struct.unpack_from(">IIBB", picture, 16) == (int(width), int(height), 8, 0)


@nodes
def test_opencv_captures(streaming, node):
    program = """
        import cv2
        camera = cv2.VideoCapture(sys.argv[1], cv2.CAP_V4L2)
        camera.set(cv2.CAP_PROP_CONVERT_RGB, 0)
        for _ in range(5):
            works, frame = camera.read()
            print(works, frame.nbytes)
    """
    shared = streaming("K3610", node)
    if shared.result("/usr/bin/python3", "-c", "import cv2").returncode != 0:
        pytest.skip("python3-opencv is not installed")
    assert shared.python(program, node).splitlines() == [f"True {frame_bytes(shared, node)}"] * 5


def planes(picture: bytes) -> bytes:
    """A picture as the sensor sends it: in four planes, of which each has one block of four."""
    block, count = 16, 4
    return b"".join(picture[at:at + block] for plane in range(count)
                    for at in range(plane * block, len(picture), count * block))


# What the library has of a still scene is what any program has. The sensor's noise goes by the
# frame id, so both begin with the same one.
def test_the_bytes_are_the_scene(tmp_path):
    sharing = pytest.importorskip("sharing")
    pixels, info = 1456 * 1088, 32
    expected, file = tmp_path / "library.raw", tmp_path / "frames.raw"
    shared = sharing.SharedBoard("K3610", "--pace", "free", "--scene", "stairs")
    try:
        shared.output(sharing.COMMAND, "capture", "images", "-n", "30", "-o", expected)
        shared.stream("images")
        shared.output(sharing.COMMAND, "reg", "write", "FRAME_ID_RESET", "1")
        shared.output(needs("v4l2-ctl"), "-d", "/dev/video0", "--stream-mmap", "--stream-count=3",
                      f"--stream-to={file}")
        size = frame_bytes(shared, "/dev/video0")
    finally:
        shared.end()
    library = expected.read_bytes()
    scene = {planes(library[at:at + pixels]) for at in range(0, len(library), pixels + info)}
    assert len(scene) == 30
    frames = file.read_bytes()
    assert [frames[i * size:i * size + pixels] in scene for i in range(3)] == [True] * 3
