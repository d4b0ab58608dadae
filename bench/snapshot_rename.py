"""A snapshot file put into the shared folder as the mail bridge puts one, for the benches that time what follows."""
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "tools"))
import container_writer  # noqa: E402


def rename_snapshot(data, mail, name, payload):
    """Writes `payload` as the snapshot `name` of `mail` in the data folder `data`: a hidden temporary in the
    account's folder, fsync, rename over the final name, under the folder's lock. Returns the monotonic clock
    (nanoseconds) just before the rename, the moment a reader may first see it."""
    folder = os.path.join(data, container_writer.TODAY, mail)
    temporary = os.path.join(folder, "." + name + ".bench.tmp")
    with container_writer.locked(data, container_writer.TODAY):
        with open(temporary, "wb") as f:
            f.write(payload)
            f.flush()
            os.fsync(f.fileno())
        start = time.monotonic_ns()
        os.rename(temporary, os.path.join(folder, name))
    return start
