#!/usr/bin/env python3
"""Shows that check_layers.py fails for each kind of violation, planted in a small tree, and passes for a sound one."""
import pathlib
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
SOUND = {
    "kiv/kivplatform/posix/KivSysText.cpp": "#include <unistd.h>\n#ifdef __linux__\n#endif\n",
    "kiv/kivbasedata/src/KivWinFile.cpp": '#include "KivException.h"\n#include "KivSysFile.h"\n',
    "kiv/kivbasedata/include/KivException.h": '#include "KivSysText.h"\n',
    "kiv/DorRelay/DorRelay.cpp": '#include "KivExProcLib.h"\n',
    "tests/kivbasedata/KivWinFile_test.cpp": '#include "KivModel.h"\n',
    "tests/kivplatform/KivSysPosix_test.cpp": "#include <sys/stat.h>\n",
    "examples/example.cpp": "#include <vector>\n",
    "benchmarks/event_bench.cpp": "#include <sys/socket.h>\n",
    "fuzz/text_fuzz.cpp": '#include "KivSysText.h"\n',
}
# file -> content, and what the checker has to say of it
PLANTED = [
    ("kiv/kivbasedata/src/KivException.cpp", '#include "KivWinFile.h"\n', "KivException.cpp (base) includes KivWinFile.h (files)"),
    ("kiv/kivplatform/windows/KivSysFile.cpp", '#include "KivException.h"\n', "KivSysFile.cpp (platform) includes KivException.h (base)"),
    ("kiv/kivbasedata/src/KivDataUtil_Log.cpp", "#include <windows.h>\n", "KivDataUtil_Log.cpp: operating-system header <windows.h>"),
    ("kiv/kivbasedata/src/KivFile.cpp", "  #  include <sys/mman.h>\n", "KivFile.cpp: operating-system header <sys/mman.h>"),
    ("kiv/DorRelay/DorRelayMain.cpp", "#if defined(_WIN32)\n#endif\n", "DorRelayMain.cpp: condition on the platform"),
    ("tests/system/tree_test.cpp", "#include <unistd.h>\n", "tree_test.cpp: operating-system header <unistd.h>"),
    ("examples/example.cpp", "#include <fcntl.h>\n", "example.cpp: operating-system header <fcntl.h>"),
    ("fuzz/text_fuzz.cpp", "#ifdef __linux__\n#endif\n", "text_fuzz.cpp: condition on the platform"),
    ("kiv/kivbasedata/src/KivNew.cpp", "", None),  # the model's layer takes every name of the library
]


def run(files):
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        (root / "cmake").mkdir()
        shutil.copy(HERE / "layers.txt", root / "cmake/layers.txt")
        for name, text in files.items():
            path = root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        result = subprocess.run([sys.executable, HERE / "check_layers.py", folder], capture_output=True, text=True)
        return result.returncode, result.stdout + result.stderr


def main():
    failed = 0

    def expect(what, files, code, text=None):
        nonlocal failed
        got, said = run(files)
        if got != code or (text is not None and text not in said):
            failed += 1
            print("check_layers_test: %s: code %d, said:\n%s" % (what, got, said))

    expect("a sound tree", SOUND, 0)
    expect("an empty tree", {}, 1, "no files found")
    for folder in ("kiv", "tests", "examples", "benchmarks", "fuzz"):
        rest = {name: text for name, text in SOUND.items() if not name.startswith(folder + "/")}
        expect("a tree without " + folder, rest, 1, folder + ": no files found")
    for name, text, finding in PLANTED:
        expect("planted in " + name, {**SOUND, name: text}, 1 if finding else 0, finding)
    print("check_layers_test: %d planted violations, %d not found" % (sum(1 for p in PLANTED if p[2]), failed))
    sys.exit(1 if failed else 0)


main()
