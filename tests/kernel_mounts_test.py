"""The command's `watch` on the kernel's own table of mounts, in a namespace of the test's."""
import os
import pathlib
import shlex
import signal
import subprocess
import sys
import tempfile
import time
import unittest

COMMAND = shlex.split(os.environ["ZEL_COMMAND"])
NAMESPACE = ["unshare", "--map-root-user", "--mount", "sh", "-c"]
STICK = "/opt/storage/usb/D1"
SCRIPT = f"""mount -t tmpfs none /opt && mkdir -p {STICK} || exit 1
"$@" & watch=$!
read go && mount -t tmpfs none {STICK}
read go && umount {STICK}
read go; kill $watch && wait $watch"""
# Ends what a failure leaves behind.
LIMITED = [sys.executable, "-c", """import os, signal, sys
signal.alarm(60)
print(os.getpid(), flush=True)
os.execvp(sys.argv[1], sys.argv[1:])"""]


def sleeps(process):
    try:
        return all(") S " in (thread / "stat").read_text(encoding="utf-8")
                   for thread in pathlib.Path(f"/proc/{process}/task").iterdir())
    except (FileNotFoundError, ProcessLookupError):  # one has just ended
        return False


class KernelMountsTest(unittest.TestCase):
    def test_watch_follows_the_table_and_sleeps_in_between(self):
        if subprocess.run([*NAMESPACE, "mount -t tmpfs none /opt"], check=False,
                          capture_output=True).returncode != 0:
            self.skipTest("not checked, since nothing may be mounted here")
        os.environ.pop("ZEL_MOUNTINFO", None)
        with tempfile.TemporaryDirectory() as folder, subprocess.Popen(
                [*NAMESPACE, SCRIPT, "sh", *LIMITED, *COMMAND, "watch", "--index", "i"],
                cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, encoding="utf-8",
                preexec_fn=lambda: signal.alarm(60)) as script:
            watch = int(script.stdout.readline())
            for line in ("ready", f"connected {STICK}", f"removed {STICK}"):
                self.assertEqual(script.stdout.readline(), line + "\n")
                deadline = time.monotonic() + 20
                while not sleeps(watch):
                    self.assertLess(time.monotonic(), deadline, f"busy after {line}")
                script.stdin.write("\n")
                script.stdin.flush()
            self.assertEqual(script.stdout.read(), "")
            self.assertEqual(script.wait(), 0)


if __name__ == "__main__":
    unittest.main()
