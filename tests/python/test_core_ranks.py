"""Trainings by several ranks, which are threads here: exchanges by a Python object."""
import array
import pickle
import threading
import unittest

from core_cases import _core

ROWS, COLUMNS = 120, 3


class Lost(Exception):
    pass


class Meeting:
    """What the ranks share."""

    def __init__(self, size):
        self.barrier = threading.Barrier(size)
        self.given = [None] * size
        self.size = size


class Rank:
    """A communicator; `fault(number)` is called in each exchange."""

    def __init__(self, meeting, rank, fault=None):
        self.meeting, self.rank, self.size = meeting, rank, meeting.size
        self.fault, self.number = fault, 0

    def meet(self, mine, take):
        self.number += 1
        if self.fault is not None:
            self.fault(self.number)
        try:
            self.meeting.given[self.rank] = bytes(mine)
            self.meeting.barrier.wait(20)
            take(self.meeting.given)
            self.meeting.barrier.wait(20)
        except threading.BrokenBarrierError:
            raise Lost from None

    def allgather(self, mine, all):
        self.meet(mine, lambda given: all.__setitem__(slice(None), b''.join(given)))

    def broadcast(self, data, root):
        self.meet(data if self.rank == root else b'',
                  lambda given: data.__setitem__(slice(None), given[root]))

    def alltoall(self, mine, all):
        each = len(mine) // self.size
        part = slice(self.rank * each, (self.rank + 1) * each)
        self.meet(mine, lambda given: all.__setitem__(
            slice(None), b''.join(one[part] for one in given)))

    def cancelled(self):
        return self.meeting.barrier.broken


def columns_of(begin, end):
    return [array.array('d', [(i * (7 + 4 * c)) % (23 + c) for i in range(begin, end)])
            for c in range(COLUMNS)]


LABELS = array.array('d', [(i * 7) % 23 - 2.0 * ((i * 11) % 24 > 9) for i in range(ROWS)])


def trained(data):
    training = _core.Training()
    for name, value in (('modelType', 'GBDT'), ('numTree', '5')):
        training.set(name, value)
    training.data(data, LABELS, None)
    return training.run(_core.Model).text(17, True)


def run(size, fault=None):
    """The results, or exceptions, of the ranks; `fault` is that of rank 0."""
    meeting, results = Meeting(size), [None] * size

    def rank_of(rank):
        try:
            communicator = Rank(meeting, rank, fault if rank == 0 else None)
            begin, end = rank * ROWS // size, (rank + 1) * ROWS // size
            share = _core.Table.from_columns(columns_of(begin, end), end - begin, None, False)
            data = _core.Dataset.gather(communicator, share)
            column = array.array('d', bytes(8 * ROWS))
            data.column(1, column)
            results[rank] = trained(data), column, communicator.number
        except Exception as error:
            meeting.barrier.abort()
            results[rank] = error

    threads = [threading.Thread(target=rank_of, args=[rank]) for rank in range(size)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return results


class RanksTest(unittest.TestCase):
    def test_model_is_that_of_one_process(self):
        table = _core.Table.from_columns(columns_of(0, ROWS), ROWS, None, False)
        expected = trained(_core.Dataset(table))
        for size in (1, 2, 4):
            for text, column, _ in run(size):
                self.assertEqual(text, expected)
                self.assertEqual(column, columns_of(0, ROWS)[1])

    def test_exception_in_any_exchange_ends_all(self):
        numbers = run(3)[0][2]

        class Fault(Exception):
            pass

        # The first ones are of gather, one is of column, the others of the training.
        for number in {*range(1, 12), numbers // 2, numbers}:
            def fault(now):
                if now == number:
                    raise Fault(number)

            first, *others = run(3, fault)
            self.assertIsInstance(first, Fault)
            self.assertEqual(first.args, (number,))
            for other in others:  # in an exchange, or told by cancelled() between two
                self.assertTrue(isinstance(other, Lost) or 'another rank has left' in str(other),
                                other)

    def test_memory_is_lent_for_a_call_only(self):
        class Keeper(Rank):
            def allgather(self, mine, all):
                kept.append(keep(all))
                super().allgather(mine, all)

        share = _core.Table.from_columns(columns_of(0, ROWS), ROWS, None, False)
        kept, keep = [], lambda view: view
        _core.Dataset.gather(Keeper(Meeting(1), 0), share)
        with self.assertRaisesRegex(ValueError, 'released'):
            kept[0][0]
        kept, keep = [], pickle.PickleBuffer
        with self.assertRaisesRegex(BufferError, 'must not keep the memory'):
            _core.Dataset.gather(Keeper(Meeting(1), 0), share)

    def test_faults_of_the_object(self):
        share = _core.Table.from_columns(columns_of(0, ROWS), ROWS, None, False)
        with self.assertRaises(AttributeError):
            _core.Dataset.gather(object(), share)
        communicator = Rank(Meeting(1), 0)
        for rank, size, kind in ((1, 1, ValueError), (-1, 1, ValueError), ('0', 1, TypeError)):
            communicator.rank, communicator.size = rank, size
            with self.assertRaises(kind):
                _core.Dataset.gather(communicator, share)
        with self.assertRaises(TypeError):
            _core.Dataset.gather(communicator, [[1.0]])


if __name__ == '__main__':
    unittest.main()
