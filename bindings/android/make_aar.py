#!/usr/bin/env python3
"""Writes the Android package: the Java API, the JNI library, and the C library for prefab.

Usage: make_aar.py OUTPUT VERSION NDK CLASSES_JAR HEADERS ABI=FOLDER...
VERSION: of the library. NDK: major version of the one that built it. HEADERS: the folder of the
public headers. FOLDER: holds libframehold_jni.so and libzpr_framehold.so for that ABI,
stripped.
"""
import json
import os
import sys
import zipfile

MIN_SDK = 21
MODULE = "prefab/modules/zpr_framehold"
MANIFEST = f"""<?xml version="1.0" encoding="utf-8"?>
<manifest xmlns:android="http://schemas.android.com/apk/res/android" package="zpr.framehold">
    <uses-sdk android:minSdkVersion="{MIN_SDK}" />
</manifest>
"""
# The JNI library looks the class up by its name.
KEEP_RULES = "-keep class zpr.framehold.Native { *; }\n"
METADATA = "aarFormatVersion=1.0\naarMetadataVersion=1.0\nminCompileSdk=1\n"


def contents(version, ndk, classes_jar, headers, folders):
    """Yields the name and the bytes of every file."""

    def read(path):
        with open(path, "rb") as file:
            return file.read()

    def as_json(value):
        return (json.dumps(value, indent=2) + "\n").encode()

    yield "AndroidManifest.xml", MANIFEST.encode()
    yield "META-INF/com/android/build/gradle/aar-metadata.properties", METADATA.encode()
    yield "R.txt", b""
    yield "classes.jar", read(classes_jar)
    yield "proguard.txt", KEEP_RULES.encode()
    yield "prefab/prefab.json", as_json(
        {"schema_version": 2, "name": "framehold", "version": version, "dependencies": []})
    yield f"{MODULE}/module.json", as_json(
        {"export_libraries": [], "library_name": "libzpr_framehold", "android": {}})
    for name in sorted(os.listdir(headers)):
        yield f"{MODULE}/include/{name}", read(f"{headers}/{name}")
    for abi, folder in folders:
        library = read(f"{folder}/libzpr_framehold.so")
        yield f"jni/{abi}/libframehold_jni.so", read(f"{folder}/libframehold_jni.so")
        yield f"jni/{abi}/libzpr_framehold.so", library
        # A plain C interface, the C++ runtime inside and hidden: it goes with any.
        yield f"{MODULE}/libs/android.{abi}/abi.json", as_json(
            {"abi": abi, "api": MIN_SDK, "ndk": ndk, "stl": "none", "static": False})
        yield f"{MODULE}/libs/android.{abi}/libzpr_framehold.so", library


def main():
    output, version, ndk, classes_jar, headers = sys.argv[1:6]
    folders = [argument.split("=", 1) for argument in sys.argv[6:]]
    with zipfile.ZipFile(output, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in contents(version, int(ndk), classes_jar, headers, folders):
            # One date for all: the same input gives the same archive.
            archive.writestr(zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0)), data,
                             zipfile.ZIP_DEFLATED)


if __name__ == "__main__":
    main()
