"""What pip calls to build the Python module (PEP 517): CMake installs it, and this packs a wheel."""

import base64
import hashlib
import os
import re
import subprocess
import sysconfig
import tempfile
import zipfile
from pathlib import Path
from sys import executable, version_info
from typing import Any, Optional

root = Path(__file__).resolve().parent.parent


def version() -> str:
    text = (root / "include/calcut/version.h").read_text()
    return ".".join(re.findall(r"#define CALCUT_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", text))


def build_wheel(directory: str, settings: Optional[Any] = None, metadata: Optional[Any] = None) -> str:
    python = f"cp{version_info[0]}{version_info[1]}"
    tag = f"{python}-{python}-{re.sub('[-.]', '_', sysconfig.get_platform())}"
    info = f"calcut-{version()}.dist-info"
    name = f"calcut-{version()}-{tag}.whl"
    jobs = str(len(os.sched_getaffinity(0)))
    with tempfile.TemporaryDirectory() as build, zipfile.ZipFile(
        Path(directory, name), "w", zipfile.ZIP_DEFLATED
    ) as wheel:
        run = lambda *words: subprocess.run(["cmake", *words], check=True)
        run("-S", str(root), "-B", build, "-DCALCUT_BUILD_TOOLS=ON", "-DCALCUT_BUILD_TESTS=OFF",
            "-DCALCUT_WITH_PYTHON=ON", f"-DPython3_EXECUTABLE={executable}", "-DCALCUT_PYTHON_DIR=.")
        run("--build", build, "--target", "calcut_python", "-j", jobs)
        run("--install", build, "--component", "python", "--strip", "--prefix", f"{build}/wheel")
        files = {
            str(path.relative_to(f"{build}/wheel")): path.read_bytes()
            for path in sorted(Path(build, "wheel").rglob("*"))
            if path.is_file()
        }
        files[f"{info}/METADATA"] = (
            f"Metadata-Version: 2.1\nName: calcut\nVersion: {version()}\n"
            "Summary: Calibrations of depth camera modules\nRequires-Dist: numpy\n"
        ).encode()
        files[f"{info}/WHEEL"] = (
            f"Wheel-Version: 1.0\nGenerator: calcut\nRoot-Is-Purelib: false\nTag: {tag}\n"
        ).encode()
        record = ""
        for path, content in files.items():
            digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
            record += f"{path},sha256={digest},{len(content)}\n"
            wheel.writestr(path, content)
        wheel.writestr(f"{info}/RECORD", record + f"{info}/RECORD,,\n")
    return name
