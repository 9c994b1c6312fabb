"""Data and a cluster of processes for the tests of sylvora.dask."""
import importlib.util
import os
import signal
import tempfile
import unittest

try:
    import dask
    import dask.array as da
    import distributed
    import numpy as np
except ImportError as error:
    raise unittest.SkipTest('needs distributed: %s' % error)
if importlib.util.find_spec('sklearn') is None:
    raise unittest.SkipTest('needs scikit-learn')
if 'LD_PRELOAD' in os.environ:
    raise unittest.SkipTest('a sanitizer makes the start of workers too slow')

draw = np.random.RandomState(5)
N = 400
X = draw.randint(0, 30, (N, 7)).astype(float)
X[draw.rand(N, 7) < 0.05] = np.nan
Y = np.nan_to_num(X[:, 0] - X[:, 1] * X[:, 2] / 9) + draw.normal(size=N)
CLASSES = np.array(['low', 'middle', 'high'])[np.digitize(Y, [-30, 0])]
WEIGHTS = draw.randint(0, 4, N)
QUERIES = np.repeat(np.arange(N // 8), 8)
CHUNKS = ((1, 149, 0, 30, 217, 3),)
SMALL = {'n_estimators': 6, 'random_state': 3}


def chunked(array, chunks=CHUNKS):
    return da.from_array(array, chunks=chunks + array.shape[1:])


def unknown(array):
    """One chunk of a size that is not known before it is computed."""
    return da.from_delayed(dask.delayed(array), (np.nan, *array.shape[1:]), array.dtype)


def text_of(model):
    models = model.model_ if isinstance(model.model_, list) else [model.model_]
    return b''.join(model.to_bytes() for model in models)


def once(marker):
    """Whether this is the first call, of all processes, with this file."""
    try:
        os.close(os.open(marker, os.O_CREAT | os.O_EXCL))
    except FileExistsError:
        return False
    return True


def objective(marker, action, y, scores):
    """The squared error; in a later round one of the ranks does something else, once."""
    if scores.any() and once(marker):
        action()
    return y - scores


def kill():
    os.kill(os.getpid(), signal.SIGKILL)


def stop():
    os.kill(os.getpid(), signal.SIGSTOP)


def fail():
    raise LookupError('one rank only')


class ClusterCase(unittest.TestCase):
    """Tests with `client`, and the addresses of its workers."""

    num_workers = 4

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.cluster = distributed.LocalCluster(
            n_workers=cls.num_workers, threads_per_worker=1, processes=True,
            dashboard_address=None, silence_logs=50, local_directory=cls.folder.name)
        cls.addClassCleanup(cls.cluster.close)
        cls.client = distributed.Client(cls.cluster)
        cls.addClassCleanup(cls.client.close)

    def setUp(self):
        self.wait_for_workers()
        self.workers = sorted(self.client.scheduler_info()['workers'])

    def wait_for_workers(self):
        """Waits until killed workers are replaced: by their nannies, or else here."""
        try:
            self.client.wait_for_workers(self.num_workers, timeout=20)
        except distributed.TimeoutError:
            missing = self.num_workers - len(self.client.scheduler_info()['workers'])
            self.cluster.scale(len(self.cluster.worker_spec) + missing)
            self.client.wait_for_workers(self.num_workers, timeout=60)

    def marker(self):
        return os.path.join(self.folder.name, self.id())
