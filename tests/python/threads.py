"""Parallel calls, for the tests. Runs under Python 2.7 and 3.8 and later."""
import sys
import threading


def each_on_a_thread(function, count):
    """Calls function(0), ... in parallel threads, with the shortest possible switch interval."""
    if hasattr(sys, 'setswitchinterval'):
        sys.setswitchinterval(1e-6)
    threads = [threading.Thread(target=function, args=(thread,)) for thread in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if hasattr(sys, 'setswitchinterval'):
        sys.setswitchinterval(0.005)
