"""The emulated terminal: its image, its cards and its console.

terminal.py BUILD [--fresh] [-- COMMAND...]: boots the terminal with the programs of the folder
BUILD and gives its console; with a COMMAND runs that instead and ends with its exit status.
"""

import argparse
import ctypes
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE.parent
SCRATCH = PROJECT / "build/terminal"
CARD_SIZE = 512 << 20  # enough for FAT32 with clusters of 4 KiB; nearly all of it is a hole
QEMU = ["qemu-system-mipsel", "-M", "malta", "-cpu", "24Kf", "-m", "256", "-vga", "none",
        "-nic", "none", "-no-reboot"]
MODULES = ["mmc_core", "mmc_block", "cqhci", "sdhci", "sdhci-pci", "fat", "vfat", "nls_cp437",
           "nls_ascii", "nls_iso8859-1", "nls_utf8"]


class Failure(Exception):
    """The machine does not do what it should."""


class Archive:
    """An initial RAM disk in the kernel's "newc" format; all files are root's."""

    def __init__(self):
        self.parts = []
        self.folders = set()

    def _entry(self, name, mode, content=b"", device=(0, 0)):
        name = name.strip("/")
        fields = [len(self.parts) + 1, mode, 0, 0, 1, 0, len(content), 0, 0, *device,
                  len(name) + 1, 0]
        head = b"070701" + b"".join(b"%08X" % f for f in fields) + name.encode() + b"\0"
        self.parts.append(head + b"\0" * (-len(head) % 4) + content + b"\0" * (-len(content) % 4))

    def folder(self, name):
        path = pathlib.PurePosixPath("/" + name.strip("/"))
        for folder in [*reversed(path.parents), path]:
            if folder != folder.parent and folder not in self.folders:
                self.folders.add(folder)
                self._entry(str(folder), stat.S_IFDIR | 0o755)

    def file(self, name, content, mode=0o644):
        self.folder(str(pathlib.PurePosixPath(name).parent))
        self._entry(name, stat.S_IFREG | mode, content.encode() if isinstance(content, str)
                    else content)

    def link(self, name, target):
        self.folder(str(pathlib.PurePosixPath(name).parent))
        self._entry(name, stat.S_IFLNK | 0o777, target.encode())

    def console(self, name):
        """The device file of the console."""
        self.folder(str(pathlib.PurePosixPath(name).parent))
        self._entry(name, stat.S_IFCHR | 0o600, device=(5, 1))

    def copy(self, source, name=None):
        """The file or link `source`, or a folder with all that it contains."""
        source = pathlib.Path(source)
        name = name or str(source)
        if source.is_symlink():
            self.link(name, os.readlink(source))
        elif source.is_dir():
            self.folder(name)
            for entry in sorted(source.iterdir()):
                self.copy(entry, f"{name}/{entry.name}")
        else:
            self.file(name, source.read_bytes(), stat.S_IMODE(source.stat().st_mode))

    def bytes(self):
        if not self.parts[-1].endswith(b"TRAILER!!!\0\0\0\0"):
            self._entry("TRAILER!!!", 0)
        parts = b"".join(self.parts)
        return parts + b"\0" * (-len(parts) % 512)


class Image:
    """What every boot has in common: the kernel, BusyBox, the libraries, and our programs."""

    def __init__(self, build, toolchain, packages, scratch):
        self.build = pathlib.Path(build).resolve()
        self.packages = pathlib.Path(packages)
        self.scratch = pathlib.Path(scratch)
        [self.strip_tool] = pathlib.Path(toolchain).glob("bin/mipsel*-uclibc-strip")
        kernel = self.packages / "linux-image-4kc-malta"
        [self.kernel] = kernel.glob("boot/vmlinuz-*")
        self.archive = Archive()
        for folder in ("dev", "proc", "sys", "tmp", "root", "mnt/sd", "mnt/sdcard", "sbin"):
            self.archive.folder(folder)
        modules = {path.name: path for path in kernel.glob("lib/modules/**/*.ko")}
        for module in MODULES:
            self.archive.copy(modules[module + ".ko"], f"lib/modules/{module}.ko")
        busybox = self.packages / "busybox-static/bin/busybox"
        self.archive.copy(busybox, "bin/busybox")
        applets = subprocess.run(["qemu-mipsel", busybox, "--list"], check=True, text=True,
                                 stdout=subprocess.PIPE).stdout.split()
        for applet in applets:
            if applet != "busybox":
                self.archive.link("bin/" + applet, "busybox")
        # fsck.fat and others are Debian's and need glibc, which Debian's cross compiler has.
        self.archive.copy(self.packages / "dosfstools/sbin/fsck.fat", "sbin/fsck.fat")
        for library in ("ld.so.1", "libc.so.6", "libm.so.6"):
            self.archive.copy(pathlib.Path("/usr/mipsel-linux-gnu/lib", library).resolve(),
                              "lib/" + library)
        for folder in ("lib", "usr/lib"):
            for path in sorted(pathlib.Path(toolchain, "sysroot", folder).glob("*.so*")):
                if path.suffix != ".py" and path.read_bytes()[:4] == b"\x7fELF":
                    self.archive.copy(path, "lib/" + path.name)
        self.archive.file("init", (HERE / "init").read_bytes(), 0o755)
        self.archive.copy(HERE / "cards.sh", "etc/cards.sh")
        for program in ("examples/terminal/collector", "examples/terminal/uplink",
                        "tools/mavutil"):
            self.program(program, "bin/" + pathlib.Path(program).name)
        self.archive.copy(PROJECT / "examples/terminal", "opt/terminal")

    def stripped(self, path):
        """A program of the build, without the data that only a debugger reads."""
        stripped = self.scratch / "stripped" / path.replace("/", "-")
        stripped.parent.mkdir(parents=True, exist_ok=True)
        if not stripped.exists() or stripped.stat().st_mtime < (self.build / path).stat().st_mtime:
            subprocess.run([self.strip_tool, "-o", stripped, self.build / path], check=True)
        return stripped.read_bytes()

    def program(self, path, name):
        self.archive.file(name, self.stripped(path), 0o755)

    def write_initrd(self, path, task, files):
        """The whole image; `task` is the shell script that it runs, `files` are more programs."""
        extra = Archive()
        extra.file("etc/task", task)
        for name, content in files.items():
            extra.file(name, content, 0o755)
        pathlib.Path(path).write_bytes(self.archive.bytes() + extra.bytes())


def new_card(path, used=0, size=CARD_SIZE):
    """An empty card: FAT32 with clusters of 4 KiB, as cards are sold, unless it is a small one.
    The first `used` bytes contain what an earlier owner has left in them."""
    with open(path, "wb") as file:
        file.write(b"what an earlier owner of the card has left \n" * (used // 44))
        file.truncate(size)
    kind = ["-F", "32", "-s", "8"] if size == CARD_SIZE else []
    subprocess.run(["mkfs.vfat", *kind, "-n", "MAVKIT", path], check=True,
                   stdout=subprocess.DEVNULL,
                   env={**os.environ, "PATH": os.environ["PATH"] + ":/sbin:/usr/sbin"})


class Port:
    """A serial port of the machine: what came out of it so far, and a way to write to it."""

    def __init__(self, path, copy_to=None):
        self.text = b""
        self.closed = False
        self.changed = threading.Condition()
        self.copy_to = copy_to
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(path))
        self.listener.listen()
        self.connection = None
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        self.connection, _ = self.listener.accept()
        self.listener.close()
        while True:
            try:
                piece = self.connection.recv(65536)
            except OSError:
                piece = b""
            with self.changed:
                self.text += piece
                self.closed = not piece
                self.changed.notify_all()
            if not piece:
                return
            if self.copy_to:
                self.copy_to.write(piece)
                self.copy_to.flush()

    def write(self, text):
        self.connection.sendall(text.encode())


def die_with_parent():
    """Called in a child: the kernel kills it when this program ends, for any reason."""
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG


class Machine:
    """One emulated terminal that is on, until it turns itself off or its power is cut."""

    def __init__(self, image, task, cards=(), files=None, out=None, error=None, quick=False):
        """`cards`: the image files of the cards that are in, each behind a controller of its own;
        None for a controller without a card. `out` and `error` get what the task writes to the
        ports ttyS1 and ttyS2. `quick`: the cards do not wait for the host's disk."""
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=image.scratch, prefix="machine-"))
        image.write_initrd(self.folder / "initrd", task, files or {})
        command = [*QEMU, "-display", "none", "-kernel", image.kernel,
                   "-initrd", self.folder / "initrd", "-append", "console=ttyS0 quiet",
                   "-qmp", f"unix:{self.folder}/qmp,server=on,wait=off"]
        self.ports = {}
        for port, copy_to in (("console", None), ("out", out), ("error", error)):
            self.ports[port] = Port(self.folder / port, copy_to)
            command += ["-chardev", f"socket,id={port},path={self.folder}/{port}",
                        "-serial", f"chardev:{port}"]
        for number, card in enumerate(cards):
            command += card_options(number, card, "unsafe" if quick else "writethrough")
        self.console = self.ports["console"]
        self.position = 0
        with open(self.folder / "qemu.log", "wb") as log:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log,
                                            stderr=log, preexec_fn=die_with_parent)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.cut_power()
        shutil.rmtree(self.folder)

    def wait_for(self, pattern, seconds=120):
        """Waits until the console shows `pattern` after the last match. Returns the match."""
        end = time.monotonic() + seconds
        with self.console.changed:
            while True:
                match = re.compile(pattern.encode()).search(self.console.text, self.position)
                if match:
                    self.position = match.end()
                    return match
                left = end - time.monotonic()
                if self.console.closed or left <= 0 or self.process.poll() is not None:
                    shown = self.console.text[-2000:].decode(errors="replace")
                    log = (self.folder / "qemu.log").read_text()
                    why = f"{seconds} s have passed" if left <= 0 else "it is off"
                    raise Failure(f"no '{pattern}' on the console, {why}:\n{shown}\n{log}")
                self.console.changed.wait(min(left, 1))

    def status(self, seconds=600):
        """Waits until the machine has turned itself off. Returns the exit status of the task."""
        status = int(self.wait_for(r"terminal: status (\d+)\r?\n", seconds)[1])
        self.process.wait(30)
        for port in self.ports.values():
            with port.changed:
                port.changed.wait_for(lambda: port.closed, 10)
        return status

    def cut_power(self):
        self.process.kill()
        self.process.wait()

    def qmp(self, command, **arguments):
        """Sends one command to the emulator itself, for example to pull out a card."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(str(self.folder / "qmp"))
            stream = connection.makefile("rw")
            stream.readline()
            for name, values in (("qmp_capabilities", {}), (command, arguments)):
                stream.write(json.dumps({"execute": name, "arguments": values}))
                stream.flush()
                answer = json.loads(stream.readline())
                while "event" in answer:
                    answer = json.loads(stream.readline())
                if "error" in answer:
                    raise Failure(f"{name}: {answer['error']['desc']}")


def card_options(number, card, cache="writethrough"):
    """The emulator's options for a controller, and for a card in it."""
    # From slot 18 on the board connects interrupts; a slot has room for eight.
    options = ["-device", f"sdhci-pci,id=slot{number},multifunction=on,"
                          f"addr={18 + number // 8:x}.{number % 8}"]
    if card:
        # Written through: data that the machine knows to be on the card is in the file.
        options += ["-drive", f"if=none,id=drive{number},format=raw,cache={cache},file={card}",
                    "-device", f"sd-card,id=card{number},drive=drive{number},"
                               f"bus=pci/slot{number}/sd-bus"]
    return options


def run_command(image, card, command):
    """Runs a shell command on the terminal: its output comes out of ours, its status is ours."""
    task = f"""insert_one_card /dev/mmcblk0 sync
cd /root
sh -c {shlex.quote(command)} </dev/null >/dev/ttyS1 2>/dev/ttyS2
"""
    with Machine(image, task, [card], out=sys.stdout.buffer, error=sys.stderr.buffer) as machine:
        return machine.status(24 * 3600)


def sit_down(image, card):
    """The console, for a person."""
    initrd = image.scratch / "initrd"
    image.write_initrd(initrd, (HERE / "console.sh").read_text(), {})
    command = [*QEMU, "-nographic", "-kernel", image.kernel, "-initrd", initrd,
               "-append", "console=ttyS0 quiet", *card_options(0, card)]
    os.execvp(command[0], command)


def add_place(parser):
    place = parser.add_argument_group("set by ./run")
    place.add_argument("--build", required=True, help="the programs")
    place.add_argument("--toolchain", required=True, help="the toolchain that built them")
    place.add_argument("--packages", required=True, help="Debian's packages for mipsel")


def make_image(options):
    SCRATCH.mkdir(parents=True, exist_ok=True)
    return Image(options.build, options.toolchain, options.packages, SCRATCH)


def main():
    parser = argparse.ArgumentParser(prog="./run terminal", description=__doc__.split("\n\n")[0])
    parser.add_argument("--fresh", action="store_true", help="with an empty card")
    parser.add_argument("command", nargs="*", help="a command to run in place of a console")
    add_place(parser)
    options = parser.parse_args()
    image = make_image(options)
    card = image.scratch / "card.img"
    if options.fresh or not card.exists():
        new_card(card)
    if options.command:
        return run_command(image, card, " ".join(options.command))
    return sit_down(image, card)


if __name__ == "__main__":
    sys.exit(main())
