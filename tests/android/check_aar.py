#!/usr/bin/env python3
"""Checks an Android package: its files, their JSON, and what the libraries need and export.

Usage: check_aar.py [--stand-in] AAR ABI...
--stand-in: the libraries are Linux ones, so their C library has other names.
"""
import io
import json
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree
import zipfile

MACHINES = {"armeabi-v7a": "ARM", "arm64-v8a": "AArch64", "x86_64": "X86-64"}
EXPORTS = {
    "libframehold_jni.so": {"JNI_OnLoad"},
    "libzpr_framehold.so": {
        "ZPR_Deinit", "ZPR_GetDefaultParam", "ZPR_GetMemorySize", "ZPR_GetVersion", "ZPR_Init",
        "ZPR_Reset", "ZPR_SetSensorData", "ZPR_Stabilize"},
}
NEEDED = {"libc.so", "libm.so", "libdl.so"}
STAND_IN_NEEDED = {"libc.so.6", "libm.so.6", "ld-linux.so.3", "ld-linux-aarch64.so.1"}
PAGE = 16384

faults = []


def check(condition, text):
    if not condition:
        faults.append(text)


def check_library(name, abi, data, is_stand_in):
    with tempfile.NamedTemporaryFile(suffix=".so") as file:
        file.write(data)
        file.flush()
        text = subprocess.run(["readelf", "-W", "-h", "-l", "-d", "-S", "--dyn-syms", file.name],
                              check=True, capture_output=True, text=True).stdout
    where = f"{abi}/{name}"
    check(re.search(rf"Machine: .*{MACHINES[abi]}$", text, re.M), f"{where}: not for {abi}")
    loads = re.findall(r"^\s*LOAD\s.*\s(0x[0-9a-f]+)$", text, re.M)
    check(loads and all(int(align, 16) >= PAGE for align in loads),
          f"{where}: segments aligned to {loads}, not to 16 KB")
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", text))
    check(needed <= (STAND_IN_NEEDED if is_stand_in else NEEDED), f"{where}: needs {needed}")
    symbols = re.findall(r"^\s*\d+: [0-9a-f]+\s+\d+ (FUNC|OBJECT)\s+\S+\s+\S+\s+(\d+) (\S+)", text,
                         re.M)
    exported = {symbol.split("@")[0] for _, _, symbol in symbols}
    check(exported == EXPORTS[name], f"{where}: exports {exported}")
    check(".debug_info" not in text and ".symtab" not in text, f"{where}: not stripped")
    if not is_stand_in:
        check(f"[{name}]" in text, f"{where}: has another name inside")
    print(f"{where}: aligned to {sorted(set(loads))}, needs {sorted(needed)}, exports "
          f"{len(exported)}")


def check_classes(data):
    with zipfile.ZipFile(io.BytesIO(data)) as jar:
        classes = [name for name in jar.namelist() if name.endswith(".class")]
        check("zpr/framehold/Stabilizer.class" in classes, "classes.jar: no Stabilizer")
        for name in classes:
            content = jar.read(name)
            check(content[7] == 52, f"{name}: for Java {content[7] - 44}, not 8")
            check(b"android/" not in content, f"{name}: uses android.*")


def main():
    arguments = sys.argv[1:]
    is_stand_in = arguments[0] == "--stand-in"
    path, *abis = arguments[is_stand_in:]
    archive = zipfile.ZipFile(path)
    module = "prefab/modules/zpr_framehold"
    expected = {
        "AndroidManifest.xml", "META-INF/com/android/build/gradle/aar-metadata.properties", "R.txt",
        "classes.jar", "proguard.txt", "prefab/prefab.json", f"{module}/module.json",
        f"{module}/include/zpr_framehold.h", f"{module}/include/zpr_smoothing_policy.h"}
    for abi in abis:
        expected |= {f"jni/{abi}/libframehold_jni.so", f"jni/{abi}/libzpr_framehold.so",
                     f"{module}/libs/android.{abi}/abi.json",
                     f"{module}/libs/android.{abi}/libzpr_framehold.so"}
    names = archive.namelist()
    check(len(names) == len(set(names)) and set(names) == expected,
          f"files that differ: {set(names) ^ expected}")
    manifest = xml.etree.ElementTree.fromstring(archive.read("AndroidManifest.xml"))
    sdk = manifest.find("uses-sdk").attrib
    check(list(sdk.values()) == ["21"], f"minimum SDK: {sdk}")
    prefab = json.loads(archive.read("prefab/prefab.json"))
    # What CMake's find_package takes as a version.
    check(re.fullmatch(r"\d+(\.\d+){1,3}", prefab["version"]), f"version {prefab['version']}")
    check(json.loads(archive.read(f"{module}/module.json"))["library_name"] == "libzpr_framehold",
          "library_name")
    check_classes(archive.read("classes.jar"))
    for abi in abis:
        described = json.loads(archive.read(f"{module}/libs/android.{abi}/abi.json"))
        check(described["abi"] == abi and described["api"] == 21, f"{abi}: {described}")
        for name in EXPORTS:
            check_library(name, abi, archive.read(f"jni/{abi}/{name}"), is_stand_in)
        check(archive.read(f"jni/{abi}/libzpr_framehold.so")
              == archive.read(f"{module}/libs/android.{abi}/libzpr_framehold.so"),
              f"{abi}: two different libraries")
    for fault in faults:
        print(fault)
    sys.exit(bool(faults))


if __name__ == "__main__":
    main()
