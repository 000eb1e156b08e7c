"""A Python host, through the ctypes package, shows an ad against the development ad server
and receives the result code; bad arguments reach the C interface without harm.

Run by ctest with: the installed prefix's library folder (TOVANI_LIBRARY_DIR), the package on
PYTHONPATH, the ad server program and a scenario as arguments."""
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "install"))
from adserver import AdServer  # noqa: E402

import tovani  # noqa: E402

ADSERVER, SCENARIO = sys.argv[1], sys.argv[2]


class PythonHost(unittest.TestCase):
    def test_a_whole_showing_ends_with_the_reward(self):
        results = []

        def on_result(result):
            results.append(result)
            tovani.quit()

        with AdServer(ADSERVER, SCENARIO) as server, \
                tempfile.TemporaryDirectory(prefix="tovani-python-") as documents:
            # Unusable values before the SDK starts: ignored, nothing shown, no callback.
            root = tovani.View(float("nan"), -3)
            tovani.show(root)
            self.assertFalse(tovani.started())
            self.assertTrue(tovani.attach_linux(
                host_mappings=server.mappings, ca_file=server.ca_file, documents_dir=documents,
                playback_rate=8.0, always_online=True))
            self.assertFalse(tovani.attach_linux(), "a second platform is refused")

            # Elements that are not text, and bytes that are not UTF-8, are skipped.
            tovani.init("DEMO_MEDIA", b"DEMO_SLOT",
                        [tovani.Category.CASUAL, 7, None, b"\xff\xfe", tovani.Category.MUSIC])
            self.assertTrue(tovani.started())
            tovani.set_callback(on_result)
            root = tovani.View(375, 667)
            attempts = 0
            while attempts < 60:
                attempts += 1
                del results[:]
                tovani.show(root)
                self.assertTrue(tovani.run(timeout=90), "no callback within 90 s")
                if results[-1] != tovani.Result.NO_AD:
                    break
                tovani.run(timeout=0.5)  # the cold start is still caching videos
            self.assertEqual(results, [tovani.Result.REWARDED])
            tovani.set_callback(None)
            self.assertFalse(tovani.run(timeout=0.3), "nothing left to end the loop")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
