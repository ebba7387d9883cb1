#!/usr/bin/env python3
"""Host side of the real-kernel rig.

  rig.py setup --work DIR --runner EXE   kernel, driver list and initramfs (cached in DIR)
  rig.py boot --work DIR --guest NAME    boots one guest under QEMU, drives its hot-plug
                                         events over QMP, saves its named results
  rig.py result --work DIR --guest NAME --check CHECK
                                         one named result: exit 0 pass, 1 fail, 77 skip

VEXO_SKIP_RIG=1 skips everything (exit 77).
"""
import argparse
import json
import lzma
import os
import re
import ctypes
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SKIP = 77
HERE = os.path.dirname(os.path.abspath(__file__))
MiB = 1024 * 1024

# Storage drivers, each with its dependencies from modprobe --show-depends.
MODULES = [
    ("ahci", ""),
    ("sd_mod", ""),
    ("sg", ""),
    ("nvme", ""),
    ("virtio_pci", ""),
    ("virtio_scsi", ""),
    ("sym53c8xx", "settle=0"),  # the default bus settle costs 3 s a boot
    ("xhci_pci", ""),
    ("usb_storage", "delay_use=0"),
]

# Real tools in the guest: source on the host -> appliance paths.
TOOLS = {
    "smartctl": ["/usr/bin/smartctl", "/usr/sbin/smartctl"],
    "hdparm": ["/usr/bin/hdparm", "/usr/sbin/hdparm"],
    "nvme": ["/usr/sbin/nvme"],
    "sg_raw": ["/usr/vexo/bin/sg_raw", "/usr/bin/sg_raw"],
    "sg_sat_identify": ["/usr/vexo/bin/sg_sat_identify", "/usr/bin/sg_sat_identify"],
    "sg_logs": ["/usr/vexo/sbin/sg_logs", "/usr/bin/sg_logs"],
    "sg_inq": ["/usr/bin/sg_inq"],
}


def disk(role, bus, port, size_mib, serial, when="boot", **kw):
    d = dict(role=role, bus=bus, port=port, when=when, serial=serial, size=size_mib * MiB)
    d.update(kw)
    return d


# The guests. Serials, models and sizes differ so that every disk is known
# by what it says, whatever name the kernel gives it.
GUESTS = {
    "main": [
        disk("sata_hdd", "ata", "internal", 64, "RIGHDD00001", model="RIGHDD 7200 RH4000", firmware="RH01",
             rotation=7200),
        disk("sata_ssd", "ata", "internal", 48, "RIGSSD00002", model="RIGSSD SV500 S480", firmware="RS0212AB",
             rotation=1, physical_block=4096),
        disk("nvme", "nvme", "cache", 40, "RIGNVME0003", crit_warning=0x04),
        disk("virtio", "virtio", "internal", 36, "RIGVS0004", vendor="RIGVEND", product="RIGVIRT DISK"),
        disk("lsi", "lsi", "esata", 32, "RIGLS0005", vendor="RIGLSI", product="RIGLSI DISK"),
        disk("usb", "usb", "usb", 24, "RIGUSB0006"),
    ],
    "hotplug": [
        disk("sata_hdd", "ata", "internal", 64, "RIGHPHDD01", model="RIGHDD 7200 RH4000", firmware="RH01",
             rotation=7200),
        disk("vs_gone", "virtio", "internal", 36, "RIGHPGONE2", when="unplug", vendor="RIGVEND",
             product="RIGVIRT GONE"),
        disk("vs_new", "virtio", "internal", 28, "RIGHPNEW03", when="plug", vendor="RIGVEND", product="RIGVIRT NEW"),
        disk("usb_new", "usb", "usb", 20, "RIGHPUSB04", when="plug"),
    ],
}


def log(msg):
    print(msg, flush=True)


def skipped():
    if os.environ.get("VEXO_SKIP_RIG") == "1":
        log("VEXO_SKIP_RIG=1: rig skipped")
        return True
    return False


# ---------------------------------------------------------------- setup

def kernel(work):
    out = subprocess.run([os.path.join(HERE, "kernel.sh"), os.path.join(work, "kernel")], check=True,
                         stdout=subprocess.PIPE, text=True, timeout=900).stdout.split()
    ver = out[-1]
    root = os.path.join(work, "kernel", ver)
    return ver, root


def modules(root, ver):
    """(path in the unpacked tree, parameters) in load order, each once."""
    order, seen = [], set()
    for name, params in MODULES:
        out = subprocess.run(["modprobe", "-d", root, "-S", ver, "--show-depends", name], check=True,
                             stdout=subprocess.PIPE, text=True, timeout=60).stdout
        lines = [l.split() for l in out.splitlines() if l.strip()]
        for i, fields in enumerate(lines):
            if fields[0] == "builtin":
                continue
            path = fields[1]
            if path in seen:
                continue
            seen.add(path)
            # The named module is the last line; its own options go with it.
            order.append((path, params if i == len(lines) - 1 else ""))
    return order


def which(tool):
    path = shutil.which(tool, path="/usr/sbin:/usr/bin:/sbin:/bin")
    if not path:
        raise SystemExit(f"rig: {tool} is not installed (tests/rig/deps.sh installs it)")
    return path


def ldd(binary):
    out = subprocess.run(["ldd", binary], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                         timeout=60).stdout
    libs = []
    for line in out.splitlines():
        m = re.search(r"=>\s+(/\S+)\s+\(", line) or re.match(r"\s*(/\S+)\s+\(", line)
        if m:
            libs.append(m.group(1))
        elif "not found" in line:
            raise SystemExit(f"rig: {binary}: {line.strip()}")
    return libs


def put(stage, src, dest, mode=None):
    target = os.path.join(stage, dest.lstrip("/"))
    os.makedirs(os.path.dirname(target), exist_ok=True)
    shutil.copyfile(src, target)
    os.chmod(target, mode if mode is not None else os.stat(src).st_mode & 0o777)


def disks_file(disks):
    keys = ["role", "bus", "port", "when", "serial", "size", "model", "firmware", "vendor", "product", "rotation",
            "physical_block", "crit_warning"]
    lines = []
    for d in disks:
        lines.append("\t".join(f"{k}={d[k]}" for k in keys if k in d))
    return "\n".join(lines) + "\n"


def initramfs(work, root, order, runner):
    stage = os.path.join(work, "initramfs.stage")
    shutil.rmtree(stage, ignore_errors=True)
    for d in ["bin", "sbin", "usr/bin", "usr/sbin", "usr/vexo/bin", "usr/vexo/sbin", "lib/modules", "rig", "proc",
              "sys", "dev", "tmp", "run", "etc", "etc.defaults", "var/log"]:
        os.makedirs(os.path.join(stage, d), exist_ok=True)

    busybox = which("busybox")
    if "not a dynamic executable" not in subprocess.run(["ldd", busybox], stdout=subprocess.PIPE,
                                                        stderr=subprocess.STDOUT, text=True).stdout:
        raise SystemExit("rig: busybox is not the static build (busybox-static)")
    put(stage, busybox, "/bin/busybox", 0o755)

    binaries = {runner: ["/usr/vexo/bin/vexorig"]}
    for tool, dests in TOOLS.items():
        binaries[which(tool)] = dests
    libs = set()
    for src, dests in binaries.items():
        for dest in dests:
            put(stage, src, dest, 0o755)
        libs.update(ldd(src))
    for lib in sorted(libs):
        # The loader keeps its own path; everything else goes to the multiarch folder.
        dest = lib if "/ld-linux" in lib else "/lib/x86_64-linux-gnu/" + os.path.basename(lib)
        put(stage, lib, dest, 0o755)

    lines = []
    for path, params in order:
        name = os.path.basename(path)
        dest = os.path.join(stage, "lib/modules")
        if name.endswith(".xz"):
            name = name[:-3]
            with lzma.open(path) as src, open(os.path.join(dest, name), "wb") as out:
                shutil.copyfileobj(src, out)
        elif name.endswith(".ko"):
            shutil.copyfile(path, os.path.join(dest, name))
        else:
            raise SystemExit(f"rig: cannot load {path} (only .ko and .ko.xz)")
        lines.append(f"/lib/modules/{name} {params}".rstrip())
    with open(os.path.join(stage, "rig/modules"), "w") as f:
        f.write("\n".join(lines) + "\n")

    for guest, disks in GUESTS.items():
        with open(os.path.join(stage, f"rig/{guest}.disks"), "w") as f:
            f.write(disks_file(disks))
        with open(os.path.join(stage, f"rig/{guest}.count"), "w") as f:
            f.write(f"{sum(1 for d in disks if d['when'] != 'plug')}\n")
    put(stage, os.path.join(HERE, "init.sh"), "/init", 0o755)

    names = subprocess.run(["find", ".", "-mindepth", "1"], cwd=stage, stdout=subprocess.PIPE, check=True,
                           timeout=60).stdout
    tmp = os.path.join(work, "initramfs.cpio.tmp")
    with open(tmp, "wb") as out:
        # Uncompressed: unpacking is cheaper than inflating under TCG.
        subprocess.run(["cpio", "-o", "-H", "newc", "--quiet", "-R", "0:0"], cwd=stage, input=b"\n".join(
            sorted(names.splitlines())) + b"\n", stdout=out, check=True, timeout=120)
    os.replace(tmp, os.path.join(work, "initramfs.cpio"))
    shutil.rmtree(stage, ignore_errors=True)


def cmd_setup(args):
    if skipped():
        return SKIP
    t0 = time.monotonic()
    os.makedirs(args.work, exist_ok=True)
    ver, root = kernel(args.work)
    vmlinuz = os.path.join(root, "boot", f"vmlinuz-{ver}")
    order = modules(root, ver)
    initramfs(args.work, root, order, args.runner)
    with open(os.path.join(args.work, "kernel.json"), "w") as f:
        json.dump({"version": ver, "vmlinuz": vmlinuz, "modules": [p for p, _ in order]}, f, indent=1)
    size = os.path.getsize(os.path.join(args.work, "initramfs.cpio"))
    log(f"rig: kernel {ver}, {len(order)} modules, initramfs {size // MiB} MiB, setup {time.monotonic() - t0:.1f} s")
    return 0


# ---------------------------------------------------------------- boot

class Qmp:
    def __init__(self, path, proc, timeout=30):
        deadline = time.monotonic() + timeout
        while True:
            try:
                self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
                self.sock.connect(path)
                break
            except OSError:
                self.sock.close()
                if time.monotonic() > deadline or proc.poll() is not None:
                    raise
                time.sleep(0.1)
        self.sock.settimeout(timeout)
        self.buf = b""
        self.read()  # greeting
        self.execute("qmp_capabilities")

    def read(self):
        while b"\n" not in self.buf:
            chunk = self.sock.recv(65536)
            if not chunk:
                raise EOFError("QMP closed")
            self.buf += chunk
        line, self.buf = self.buf.split(b"\n", 1)
        return json.loads(line)

    def execute(self, command, **arguments):
        msg = {"execute": command}
        if arguments:
            msg["arguments"] = arguments
        self.sock.sendall(json.dumps(msg).encode() + b"\n")
        while True:
            reply = self.read()
            if "event" in reply:
                continue
            if "error" in reply:
                raise RuntimeError(f"QMP {command}: {reply['error']}")
            return reply.get("return")

    def close(self):
        self.sock.close()


def accel():
    if os.path.exists("/sys/module/kvm_intel") or os.path.exists("/sys/module/kvm_amd"):
        if os.access("/dev/kvm", os.R_OK | os.W_OK):
            return ["-accel", "kvm", "-cpu", "host"]
    return ["-accel", "tcg,thread=multi", "-cpu", "max"]


def device_args(d):
    """-device properties of one disk (without bus and drive)."""
    props = {"id": "disk_" + d["role"], "serial": d["serial"]}
    if d["bus"] == "ata":
        props.update(driver="ide-hd", model=d["model"], ver=d["firmware"], rotation_rate=d["rotation"])
        if "physical_block" in d:
            props["physical_block_size"] = d["physical_block"]
    elif d["bus"] == "nvme":
        props.update(driver="nvme")
        if d.get("crit_warning"):
            props["smart_critical_warning"] = d["crit_warning"]
    elif d["bus"] in ("virtio", "lsi"):
        props.update(driver="scsi-hd", vendor=d["vendor"], product=d["product"])
    elif d["bus"] == "usb":
        props.update(driver="usb-storage")
    return props


def qemu_argv(info, work, gdir, guest, disks, qmp_path):
    argv = ["qemu-system-x86_64", "-M", "pc", "-m", "512", "-smp", "1", "-nodefaults", "-no-user-config",
            "-display", "none", "-no-reboot"] + accel()
    argv += ["-kernel", info["vmlinuz"], "-initrd", os.path.join(work, "initramfs.cpio"),
             "-append", f"console=ttyS0 panic=-1 quiet loglevel=3 rig.guest={guest}",
             "-serial", "file:" + os.path.join(gdir, "console.log"),
             "-serial", "file:" + os.path.join(gdir, "results.txt"),
             "-qmp", f"unix:{qmp_path},server=on,wait=off"]
    buses = {d["bus"] for d in disks}
    if "ata" in buses:
        argv += ["-device", "ahci,id=ahci0"]
    if "virtio" in buses:
        argv += ["-device", "virtio-scsi-pci,id=vscsi"]
    if "lsi" in buses:
        argv += ["-device", "lsi53c895a,id=lsi"]
    if "usb" in buses:
        argv += ["-device", "qemu-xhci,id=xhci"]
    ata_port = 0
    for d in disks:
        image = os.path.join(gdir, d["role"] + ".img")
        subprocess.run(["qemu-img", "create", "-q", "-f", "raw", image, str(d["size"])], check=True, timeout=30)
        argv += ["-drive", f"if=none,id=drv_{d['role']},file={image},format=raw"]
        if d["when"] == "plug":
            continue  # attached over QMP
        props = device_args(d)
        props["drive"] = "drv_" + d["role"]
        if d["bus"] == "ata":
            props["bus"] = f"ahci0.{ata_port}"
            ata_port += 1
        elif d["bus"] == "virtio":
            props["bus"] = "vscsi.0"
        elif d["bus"] == "lsi":
            props["bus"] = "lsi.0"
        elif d["bus"] == "usb":
            props["bus"] = "xhci.0"
        driver = props.pop("driver")
        argv += ["-device", driver + "," + ",".join(f"{k}={v}" for k, v in props.items())]
    return argv


def hotplug(qmp, disks):
    """Removes the disks marked unplug and adds those marked plug."""
    for d in disks:
        if d["when"] == "unplug":
            qmp.execute("device_del", id="disk_" + d["role"])
    for d in disks:
        if d["when"] != "plug":
            continue
        props = device_args(d)
        props["drive"] = "drv_" + d["role"]
        props["bus"] = {"virtio": "vscsi.0", "usb": "xhci.0"}[d["bus"]]
        props = {k: str(v) for k, v in props.items()}
        qmp.execute("device_add", **props)


def parse_results(text):
    checks, results, notes, end = [], {}, {}, None
    for line in text.replace("\r", "").splitlines():
        m = re.match(r"RIG-CHECKS (\S+)(.*)", line)
        if m:
            checks = m.group(2).split()
            continue
        m = re.match(r"RIG-RESULT (\S+?)\.(\S+) (PASS|FAIL|SKIP) ?(.*)", line)
        if m:
            results[m.group(2)] = {"status": m.group(3), "reason": m.group(4), "notes": notes.get(m.group(2), [])}
            continue
        m = re.match(r"RIG-NOTE (\S+?)\.(\S+) (.*)", line)
        if m:
            notes.setdefault(m.group(2), []).append(m.group(3))
            continue
        if line.startswith("RIG-END"):
            end = line
    return checks, results, end


def die_with_parent():
    """In the QEMU child: killed when the rig process goes, whatever ends it."""
    PR_SET_PDEATHSIG = 1
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def on_term(signum, frame):
    raise SystemExit(f"rig: stopped by signal {signum}")


def cmd_boot(args):
    if skipped():
        return SKIP
    signal.signal(signal.SIGTERM, on_term)
    signal.signal(signal.SIGINT, on_term)
    try:
        with open(os.path.join(args.work, "kernel.json")) as f:
            info = json.load(f)
    except OSError:
        log(f"rig: no kernel in {args.work} (did rig.setup run?)")
        return 1
    disks = GUESTS[args.guest]
    gdir = os.path.join(args.work, "guests", args.guest)
    shutil.rmtree(gdir, ignore_errors=True)
    os.makedirs(gdir)
    sockdir = tempfile.mkdtemp(prefix="vexorig-")  # unix socket paths are short
    qmp_path = os.path.join(sockdir, "qmp")
    argv = qemu_argv(info, args.work, gdir, args.guest, disks, qmp_path)
    with open(os.path.join(gdir, "qemu.argv"), "w") as f:
        f.write("\n".join(argv) + "\n")

    results_path = os.path.join(gdir, "results.txt")
    t0 = time.monotonic()
    with open(os.path.join(gdir, "qemu.out"), "w") as qemu_out:
        proc = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=qemu_out, stderr=subprocess.STDOUT,
                                preexec_fn=die_with_parent)
    qmp, plugged, timed_out, error = None, None, False, None
    try:
        qmp = Qmp(qmp_path, proc)
        while proc.poll() is None:
            if time.monotonic() - t0 > args.timeout:
                timed_out = True
                break
            text = open(results_path, errors="replace").read() if os.path.exists(results_path) else ""
            if plugged is None and "RIG-HOTPLUG ready" in text:
                hotplug(qmp, disks)
                plugged = time.monotonic() - t0
            time.sleep(0.1)
    except Exception as e:  # report, then clean up the guest
        error = f"{type(e).__name__}: {e}"
    finally:  # also on SystemExit from a signal
        if proc.poll() is None:
            proc.kill()
        proc.wait()
        if qmp:
            qmp.close()
        shutil.rmtree(sockdir, ignore_errors=True)
        for d in disks:
            try:
                os.unlink(os.path.join(gdir, d["role"] + ".img"))
            except OSError:
                pass
    elapsed = time.monotonic() - t0

    text = open(results_path, errors="replace").read() if os.path.exists(results_path) else ""
    console_path = os.path.join(gdir, "console.log")
    console = open(console_path, errors="replace").read() if os.path.exists(console_path) else ""
    checks, results, end = parse_results(text)
    with open(os.path.join(gdir, "results.json"), "w") as f:
        json.dump({"checks": checks, "results": results, "end": end, "seconds": round(elapsed, 1),
                   "hotplug_at": plugged}, f, indent=1)

    counts = {s: sum(1 for r in results.values() if r["status"] == s) for s in ("PASS", "FAIL", "SKIP")}
    log(f"rig: guest {args.guest}: {elapsed:.1f} s, {counts['PASS']} passed, {counts['FAIL']} failed, "
        f"{counts['SKIP']} skipped" + (f", hot-plug at {plugged:.1f} s" if plugged else ""))
    for name, r in results.items():
        log(f"  {r['status']:4} {args.guest}.{name} {r['reason']}".rstrip())
    problems = []
    if error:
        problems.append(error)
    if timed_out:
        problems.append(f"no power-off within {args.timeout} s")
    if not re.search(rf"RIG-DONE guest={args.guest} ", console):
        problems.append("no end marker on the console")
    if end is None:
        problems.append("the runner did not finish")
    missing = [c for c in checks if c not in results]
    if missing:
        problems.append("no result for " + ", ".join(missing))
    if problems:
        log("rig: " + "; ".join(problems))
        log("---- console (last lines) ----\n" + "\n".join(console.splitlines()[-40:]))
        log("---- qemu ----\n" + open(os.path.join(gdir, "qemu.out"), errors="replace").read())
        return 1
    return 0


def cmd_result(args):
    if skipped():
        return SKIP
    path = os.path.join(args.work, "guests", args.guest, "results.json")
    try:
        with open(path) as f:
            data = json.load(f)
    except OSError:
        log(f"rig: no results for guest {args.guest} (did rig.boot.{args.guest} run?)")
        return 1
    r = data["results"].get(args.check)
    if r is None:
        log(f"rig: guest {args.guest} reported nothing for {args.check}")
        return 1
    for n in r["notes"]:
        log(n)
    log(f"{r['status']} {args.guest}.{args.check} {r['reason']}".rstrip())
    return {"PASS": 0, "FAIL": 1, "SKIP": SKIP}[r["status"]]


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = p.add_subparsers(dest="cmd", required=True)
    s = sub.add_parser("setup")
    s.add_argument("--work", required=True)
    s.add_argument("--runner", required=True)
    b = sub.add_parser("boot")
    b.add_argument("--work", required=True)
    b.add_argument("--guest", required=True, choices=sorted(GUESTS))
    b.add_argument("--timeout", type=int, default=240)
    r = sub.add_parser("result")
    r.add_argument("--work", required=True)
    r.add_argument("--guest", required=True)
    r.add_argument("--check", required=True)
    args = p.parse_args()
    return {"setup": cmd_setup, "boot": cmd_boot, "result": cmd_result}[args.cmd](args)


if __name__ == "__main__":
    sys.exit(main())
