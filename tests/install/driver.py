"""Checks the SDK the way a host team meets it: an installed prefix, its public symbols, and
hosts built out of tree against that prefix only.

  driver.py install <source> <work> <cmake args...>   configure, build, install to <work>/prefix
  driver.py symbols <work> <expected list>            nm -D of the shared core against the list
  driver.py host-cmake <source> <work> <adserver> <scenario>
  driver.py host-c <source> <work> <adserver> <scenario>
"""
import glob
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from adserver import AdServer  # noqa: E402


def run(command, **kwargs):
    print("+ " + " ".join(command), flush=True)
    subprocess.run(command, check=True, **kwargs)


def clean_env():
    """The suite may run under sanitizer settings; the installed build has none."""
    env = dict(os.environ)
    for key in ("LD_PRELOAD", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
        env.pop(key, None)
    return env


def libdir(work):
    found = glob.glob(os.path.join(work, "prefix", "lib*", "**", "libtovani.so.*"), recursive=True)
    if not found:
        sys.exit("no libtovani.so.* under %s/prefix" % work)
    return os.path.dirname(found[0])


def install(source, work, cmake_args):
    build = os.path.join(work, "build")
    prefix = os.path.join(work, "prefix")
    shutil.rmtree(prefix, ignore_errors=True)
    env = clean_env()
    run(["cmake", "-S", source, "-B", build, "-G", "Ninja"] + cmake_args, env=env)
    run(["cmake", "--build", build], env=env)
    run(["cmake", "--install", build, "--prefix", prefix], env=env)


def symbols(work, expected_file):
    library = glob.glob(os.path.join(libdir(work), "libtovani.so.*.*"))[0]
    out = subprocess.run(["nm", "-D", "--defined-only", library], check=True,
                         capture_output=True, text=True).stdout
    found = sorted({line.split()[-1] for line in out.splitlines() if line.strip()})
    with open(expected_file) as f:
        expected = sorted({line.strip() for line in f if line.strip() and line[0] != "#"})
    missing = [s for s in expected if s not in found]
    extra = [s for s in found if s not in expected]
    for s in missing:
        print("missing from the library: " + s)
    for s in extra:
        print("exported but not in the list: " + s)
    if missing or extra:
        print("update %s when the public interface changes on purpose" % expected_file)
        return 1
    print("%d public symbols, as listed" % len(found))
    return 0


def run_host(program, adserver, scenario, env):
    with AdServer(adserver, scenario) as server, \
            tempfile.TemporaryDirectory(prefix="tovani-host-") as documents:
        env = dict(env, TOVANI_HOST_MAPPINGS=";".join(server.mappings),
                   TOVANI_CA_FILE=server.ca_file, TOVANI_DOCUMENTS=documents)
        print("+ " + program, flush=True)
        return subprocess.run([program], env=env, timeout=240).returncode


def host_cmake(source, work, adserver, scenario):
    build = os.path.join(work, "host-cmake")
    shutil.rmtree(build, ignore_errors=True)
    env = clean_env()
    # The prefix only: nothing of the source or build tree is visible to the host.
    run(["cmake", "-S", os.path.join(source, "examples", "host-cmake"), "-B", build, "-G",
         "Ninja", "-DCMAKE_PREFIX_PATH=" + os.path.join(work, "prefix")], env=env)
    run(["cmake", "--build", build], env=env)
    return run_host(os.path.join(build, "tovani-host-cmake"), adserver, scenario, env)


def host_c(source, work, adserver, scenario):
    build = os.path.join(work, "host-c")
    shutil.rmtree(build, ignore_errors=True)
    os.makedirs(build)
    env = clean_env()
    env["PKG_CONFIG_PATH"] = os.path.join(libdir(work), "pkgconfig")
    flags = subprocess.run(["pkg-config", "--cflags", "--libs", "tovani-linux"], env=env,
                           check=True, capture_output=True, text=True).stdout.split()
    program = os.path.join(build, "tovani-host-c")
    run(["cc", "-std=c89", "-pedantic-errors", "-Wall", "-Wextra", "-Werror", "-o", program,
         os.path.join(source, "examples", "host-c", "main.c")] + flags, env=env)
    env["LD_LIBRARY_PATH"] = libdir(work)
    return run_host(program, adserver, scenario, env)


def main(argv):
    command = argv[1]
    if command == "install":
        install(argv[2], argv[3], argv[4:])
        return 0
    if command == "symbols":
        return symbols(argv[2], argv[3])
    if command == "host-cmake":
        return host_cmake(*argv[2:6])
    if command == "host-c":
        return host_c(*argv[2:6])
    sys.exit(__doc__)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
