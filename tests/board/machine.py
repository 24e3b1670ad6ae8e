"""The emulated machine: QEMU with the devices of a board file."""

import json
import os
import pathlib
import socket
import subprocess
import time

EEPROM_SIZE = 65536

# What the emulator has in the place of each type of the board file.
MODELS = {
    "pca9548": "pca9548",
    "at24c512": "at24c-eeprom",
    "tpa626": "tmp105",  # a pointer register and 16-bit words, most significant byte first
    "pca9554": "max7310",  # the same registers 0 to 3
    "registers": "adm1272",
}
BUILT_IN = [(7, 0x50), (8, 0x4D)]  # bus and address of devices that belong to the machine

# mem= keeps the owner table's memory out of the kernel's hands, iomem= lets /dev/mem map the controllers. Tests of
# ciphers and reading of certificates would take half of the boot.
KERNEL_LINE = ("console=ttyS4,115200n8 mem=512M iomem=relaxed panic=-1 quiet cryptomgr.notests "
               "initcall_blacklist=load_system_certificate_list board=")


def devices(of, bus_name):
    """The arguments for devices and, behind switches, those on their channels. EEPROMs become files, made anew."""
    for device in of:
        name, address = device["name"], int(device["address"], 0)
        options = f"{MODELS[device['type']]},id={name},bus={bus_name},address={address}"
        if device["type"] == "at24c512":
            pathlib.Path(f"{name}.bin").write_bytes(b"\xff" * EEPROM_SIZE)
            yield from ["-drive", f"if=none,format=raw,id=file-{name},file={name}.bin"]
            options += f",rom-size={EEPROM_SIZE},drive=file-{name}"
        yield from ["-device", options]
        for channel, below in device.get("channels", {}).items():
            yield from devices(below, f"{bus_name}/{name}/i2c.{channel}")


def arguments(image, mode):
    yield from ["qemu-system-arm", "-M", "ast2600-evb", "-m", "1G", "-accel", "tcg", "-nodefaults", "-net", "none"]
    yield from ["-display", "none", "-no-reboot", "-kernel", f"{image}/kernel.uimage", "-dtb", f"{image}/board.dtb"]
    yield from ["-initrd", f"{image}/initramfs.cpio", "-append", KERNEL_LINE + mode]
    for bus in json.loads(pathlib.Path(image, "board.json").read_text())["buses"]:
        of = [device for device in bus["devices"] if (bus["bus"], int(device["address"], 0)) not in BUILT_IN]
        yield from devices(of, f"aspeed.i2c.bus.{bus['bus']}")


class Silence(Exception):
    """Nothing was heard for too long, or never will be."""


class Line:
    """A connection to the machine, line by line."""

    def __init__(self):
        self.ours, self.theirs = socket.socketpair()
        self.received = b""

    def send(self, text):
        try:
            self.ours.sendall(text.encode() + b"\n")
        except OSError as error:
            raise Silence(str(error)) from error

    def receive(self, seconds):
        """The next line; none when the time is over."""
        until = time.monotonic() + seconds
        while b"\n" not in self.received:
            self.ours.settimeout(max(until - time.monotonic(), 0.001))
            try:
                more = self.ours.recv(4096)
            except TimeoutError:
                return None
            except OSError as error:
                raise Silence(str(error)) from error
            if not more:
                raise Silence("the connection was closed")
            self.received += more
        line, self.received = self.received.split(b"\n", 1)
        return line.decode(errors="replace").rstrip("\r")


class Machine:
    """Its console goes to console.log, its own messages to qemu.log."""

    def __init__(self, image):
        self.guest, self.qtest, self.monitor = Line(), Line(), Line()
        lines = {"guest": self.guest, "qtest": self.qtest, "monitor": self.monitor}
        command = ["setpriv", "--pdeathsig", "KILL", *arguments(image, "cases")]
        for name, line in lines.items():
            command += ["-chardev", f"socket,id={name},fd={line.theirs.fileno()}"]
        command += ["-chardev", "file,id=console,path=console.log", "-serial", "chardev:console"]
        command += ["-serial", "chardev:guest", "-object", "qtest,id=outside,chardev=qtest,log=none"]
        command += ["-mon", "chardev=monitor,mode=control"]
        with open("qemu.log", "wb") as log:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            pass_fds=[line.theirs.fileno() for line in lines.values()])
        for line in lines.values():
            line.theirs.close()
        self.ask_monitor("qmp_capabilities")

    def ask_monitor(self, command, **arguments):
        self.monitor.send(json.dumps({"execute": command, "arguments": arguments}))
        while (line := self.monitor.receive(10)) is not None:
            answer = json.loads(line)
            if "error" in answer:
                raise RuntimeError(f"the emulator refuses: {line}")
            if "return" in answer:  # events come in between
                return
        raise Silence("the monitor does not answer")

    def ask_qtest(self, command):
        """Memory and pins from outside, in QEMU's qtest protocol (docs/devel/testing/qtest)."""
        self.qtest.send(command)
        while (line := self.qtest.receive(10)) is not None:
            if line.startswith("OK"):
                return line[3:]
            if not line.startswith("IRQ"):
                raise RuntimeError(f"the emulator refuses '{command}': {line}")
        raise Silence("the machine does not answer")

    def set_property(self, device, name, value):
        self.ask_monitor("qom-set", path=f"/machine/peripheral/{device}", property=name, value=value)

    def end(self, seconds):
        """Whether it ends by itself in that time; afterwards it has."""
        try:
            return self.process.wait(seconds) == 0
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            return False


def become_machine(image):
    """With its console on the terminal."""
    command = [*arguments(image, "shell"), "-serial", "mon:stdio", "-serial", "null"]
    os.execvp(command[0], command)
