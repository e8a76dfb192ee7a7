"""The emulated terminal: its image, its cards and its console.

Boots the terminal and gives its console. With a COMMAND, runs that instead, without standard
input, and ends with its exit status: one word is a line for the shell, several are a command and
its arguments. A failure of the terminal itself ends with status 125.
"""

import argparse
import ctypes
import fcntl
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
CARD_SIZE = 512 << 20  # enough for FAT32 with clusters of 4 KiB; nearly all of it is a hole
FAILED = 125  # the exit status for a failure of the terminal, not of a command on it
QEMU = ["qemu-system-mipsel", "-M", "malta", "-cpu", "24Kf", "-m", "256", "-vga", "none",
        "-nic", "none", "-no-reboot"]
BOOT = ["-append", "console=ttyS0 quiet panic=-1"]  # with -no-reboot, a panic turns it off
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
        self._entry(name, stat.S_IFREG | mode, os.fsencode(content) if isinstance(content, str)
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
        compilers = sorted(pathlib.Path(toolchain).glob("bin/mipsel*-g++"))
        if not compilers:
            raise Failure(f"there is no bin/mipsel*-g++ in {toolchain}")
        self.strip_tool = str(compilers[0]).removesuffix("g++") + "strip"
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
        self._libraries(compilers[0])
        self.archive.file("init", (HERE / "init").read_bytes(), 0o755)
        self.archive.copy(HERE / "cards.sh", "etc/cards.sh")
        for program in ("examples/terminal/collector", "examples/terminal/uplink",
                        "tools/mavutil"):
            self.program(program, "bin/" + pathlib.Path(program).name)
        self.archive.copy(PROJECT / "examples/terminal", "opt/terminal")

    def _libraries(self, compiler):
        """What the programs need of the toolchain: its loader, libc and libstdc++."""
        sysroot = subprocess.run([compiler, "-print-sysroot"], check=True, text=True,
                                 stdout=subprocess.PIPE).stdout.strip()
        names = []
        for folder in ("lib", "usr/lib"):
            for path in sorted(pathlib.Path(sysroot, folder).glob("*.so*")):
                if path.is_file() and path.read_bytes()[:4] == b"\x7fELF":
                    self.archive.copy(path, "lib/" + path.name)
                    names.append(path.name)
        if not any(name.startswith("libc.so.") for name in names):
            raise Failure(f"there is no libc.so.* in the sysroot '{sysroot}' of {compiler}")

    def stripped(self, path):
        """A program of the build, without the data that only a debugger reads."""
        stripped = self.scratch / "stripped" / path.replace("/", "-")
        stripped.parent.mkdir(parents=True, exist_ok=True)
        if not stripped.exists() or stripped.stat().st_mtime < (self.build / path).stat().st_mtime:
            new = stripped.with_name(f"{stripped.name}.{os.getpid()}")  # others may make it too
            subprocess.run([self.strip_tool, "-o", new, self.build / path], check=True)
            new.replace(stripped)
        return stripped.read_bytes()

    def program(self, path, name):
        self.archive.file(name, self.stripped(path), 0o755)

    def initrd(self, task, files):
        """The whole image, as a file without a name, which lasts as long as somebody has it open.
        `task` is the shell script that it runs, `files` are more programs."""
        extra = Archive()
        extra.file("etc/task", task)
        for name, content in files.items():
            extra.file(name, content, 0o755)
        file = tempfile.TemporaryFile(dir=self.scratch)
        file.write(self.archive.bytes() + extra.bytes())
        file.flush()
        return file


def new_card(path, used=0, size=CARD_SIZE):
    """An empty card: FAT32 with clusters of 4 KiB, as cards are sold, unless it is a small one.
    The first `used` bytes contain what an earlier owner has left in them. It gets its name when it
    is whole."""
    new = path.with_name(path.name + ".new")
    with open(new, "wb") as file:
        file.write(b"what an earlier owner of the card has left \n" * (used // 44))
        file.truncate(size)
    kind = ["-F", "32", "-s", "8"] if size == CARD_SIZE else []
    made = subprocess.run(["mkfs.vfat", *kind, "-n", "MAVKIT", new], check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          env={**os.environ, "PATH": os.environ["PATH"] + ":/sbin:/usr/sbin"})
    if made.returncode != 0:
        raise Failure(f"mkfs.vfat cannot make a card:\n{made.stdout}")
    new.replace(path)


def lock(path, flags=os.O_RDONLY):
    """Locks `path` and returns its descriptor. The lock ends with the last process that has it.
    Raises BlockingIOError when `path` is locked already."""
    descriptor = os.open(path, flags, 0o644)
    fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    return descriptor


class Port:
    """A serial port of the machine: what came out of it so far. With `copy_to`, a descriptor, it is
    written there instead; `error` is what prevented that."""

    def __init__(self, copy_to=None):
        self.text = b""
        self.closed = False
        self.error = None
        self.changed = threading.Condition()
        self.copy_to = copy_to
        self.connection, self.far_end = socket.socketpair()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        while not self.closed:
            piece = b""
            try:
                piece = self.connection.recv(65536)
            except OSError:
                pass  # as at its end
            self._take(piece)

    def _take(self, piece):
        error = None
        rest = piece if self.copy_to is not None else b""
        try:
            while rest:
                rest = rest[os.write(self.copy_to, rest):]
        except OSError as failed:
            error = failed
        with self.changed:
            self.text += piece if self.copy_to is None else b""
            self.error = error
            self.closed = not piece or error is not None
            self.changed.notify_all()


def die_with_parent():
    """Called in a child: the kernel kills it when this program ends, for any reason."""
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG


class Machine:
    """One emulated terminal that is on, until it turns itself off or its power is cut."""

    def __init__(self, image, task, cards=(), files=None, out=None, error=None, quick=False):
        """`cards`: the image files of the cards that are in, each behind a controller of its own;
        None for a controller without a card. The descriptors `out` and `error` get what the task
        writes to the ports ttyS1 and ttyS2. `quick`: the cards do not wait for the host's disk."""
        self.log = tempfile.TemporaryFile()
        self.ports = {"console": Port(), "out": Port(out), "error": Port(error)}
        self.console = self.ports["console"]
        self.position = 0
        control, far_end = socket.socketpair()
        self.control = control.makefile("rw")
        far_ends = {"control": far_end, **{key: port.far_end for key, port in self.ports.items()}}
        with image.initrd(task, files or {}) as initrd:
            command = [*QEMU, *BOOT, "-display", "none", "-kernel", image.kernel,
                       "-initrd", f"/proc/self/fd/{initrd.fileno()}"]
            for key, end in far_ends.items():
                command += ["-chardev", f"socket,id={key},fd={end.fileno()}"]
            for key in self.ports:
                command += ["-serial", f"chardev:{key}"]
            command += ["-mon", "chardev=control,mode=control"]
            for number, card in enumerate(cards):
                command += card_options(number, card, "unsafe" if quick else "writethrough")
            self.process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log,
                pass_fds=[initrd.fileno(), *(end.fileno() for end in far_ends.values())],
                preexec_fn=die_with_parent)
        for end in far_ends.values():
            end.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.cut_power()
        self.log.close()

    def _expect_output(self):
        """Raises what prevents that the task's output is written."""
        for port in self.ports.values():
            if port.error:
                raise port.error

    def wait_for(self, pattern, seconds=400, what=None):
        """Waits until the console shows `pattern` after the last match. Returns the match. `what`
        is the meaning of the pattern, for the message. The waits are long: on some hosts the
        machine now and then stands still for half a minute or more."""
        end = time.monotonic() + seconds
        with self.console.changed:
            while True:
                self._expect_output()
                match = re.compile(pattern.encode()).search(self.console.text, self.position)
                if match:
                    self.position = match.end()
                    return match
                left = end - time.monotonic()
                if self.console.closed or left <= 0:
                    why = f"{seconds} s passed" if left <= 0 else "the machine was off"
                    shown = self.console.text[-2000:].decode(errors="replace")
                    log = os.pread(self.log.fileno(), 2000, 0).decode(errors="replace")
                    raise Failure(f"{why} before {what or repr(pattern)}; the console shows:\n"
                                  f"{shown}\n{log}".rstrip())
                self.console.changed.wait(min(left, 1))

    def status(self, seconds=600):
        """Waits until the machine has turned itself off. Returns the exit status of the task."""
        status = int(self.wait_for(r"terminal: status (\d+)\r", seconds, "the end of the task")[1])
        try:
            self.process.wait(60)
        except subprocess.TimeoutExpired as late:
            raise Failure("the machine did not turn itself off") from late
        self._read_to_end()
        self._expect_output()
        return status

    def _read_to_end(self):
        # The rest of the output waits for its reader, who may take his time.
        for port in self.ports.values():
            with port.changed:
                port.changed.wait_for(lambda port=port: port.closed)

    def cut_power(self):
        """Afterwards all that came out of the machine before is there."""
        self.process.kill()
        self.process.wait()
        self._read_to_end()

    def qmp(self, command, **arguments):
        """Sends one command to the emulator itself, for example to pull out a card."""
        # The first of the two is refused after the first time, which does no harm.
        for name, values in (("qmp_capabilities", {}), (command, arguments)):
            self.control.write(json.dumps({"execute": name, "arguments": values}))
            self.control.flush()
            answer = {}
            while not answer.keys() & {"return", "error"}:  # a greeting, or an event
                answer = json.loads(self.control.readline() or '{"error": {"desc": "it is off"}}')
        if "error" in answer:
            raise Failure(f"{command}: {answer['error']['desc']}")


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
    task = f"""if ! insert_one_card /dev/mmcblk0 sync >/dev/ttyS2 2>&1; then
    echo "terminal: the card cannot be mounted; --fresh makes a new one" >/dev/ttyS2
    return {FAILED}
fi
cd /root
sh -c {shlex.quote(command)} </dev/null >/dev/ttyS1 2>/dev/ttyS2
"""
    with Machine(image, task, [card], out=1, error=2) as machine:
        return machine.status(24 * 3600)


def sit_down(image, card):
    """The console, for a person."""
    initrd = image.initrd((HERE / "console.sh").read_text(), {})
    os.set_inheritable(initrd.fileno(), True)
    command = [*QEMU, *BOOT, "-nographic", "-kernel", image.kernel,
               "-initrd", f"/proc/self/fd/{initrd.fileno()}", *card_options(0, card)]
    os.execvp(command[0], command)


def add_place(parser):
    place = parser.add_argument_group("set by ./run")
    place.add_argument("--build", required=True, help="the programs")
    place.add_argument("--toolchain", required=True, help="the toolchain that built them")
    place.add_argument("--packages", required=True, help="Debian's packages for mipsel")
    place.add_argument("--scratch", type=pathlib.Path, default=PROJECT / "build/terminal",
                       help="cards, and what else is made here (build/terminal)")


def make_image(options):
    options.scratch.mkdir(parents=True, exist_ok=True)
    return Image(options.build, options.toolchain, options.packages, options.scratch)


def start(options):
    if not options.command and not os.isatty(0):
        raise Failure("the console needs a terminal; in a script, give a command after --")
    card = options.scratch / "card.img"
    options.scratch.mkdir(parents=True, exist_ok=True)
    try:
        locked = lock(card.with_suffix(".lock"), os.O_RDWR | os.O_CREAT)
    except BlockingIOError as busy:
        raise Failure("another terminal uses the card; turn that one off first") from busy
    os.set_inheritable(locked, True)  # for the emulator in the place of this program
    image = make_image(options)
    if options.fresh or not card.exists():
        new_card(card)
    if not options.command:
        return sit_down(image, card)
    one = len(options.command) == 1
    return run_command(image, card, options.command[0] if one else shlex.join(options.command))


def main():
    while (spare := os.open(os.devnull, os.O_RDWR)) <= 2:
        os.set_inheritable(spare, True)  # in the place of a standard stream that was closed
    os.close(spare)
    signal.signal(signal.SIGINT, signal.SIG_DFL)  # Ctrl-C ends this program and the machine
    parser = argparse.ArgumentParser(prog="./run terminal", description=__doc__)
    parser.add_argument("--fresh", action="store_true", help="with an empty card")
    parser.add_argument("command", nargs="*", help="a command to run in place of a console")
    add_place(parser)
    try:
        return start(parser.parse_args())
    except BrokenPipeError:
        return 141  # as a program that SIGPIPE has ended
    except (Failure, OSError, subprocess.SubprocessError) as failure:
        print(f"./run terminal: {failure}", file=sys.stderr)
        return FAILED


if __name__ == "__main__":
    sys.exit(main())
