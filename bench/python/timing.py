"""Medians of repeated timings, interleaved so that a busy moment on a shared
machine falls on every contender alike.

Each contender is a call `fn(*args)`, run as timeit runs it (a compiled loop,
the garbage collector off during a repetition). Its loop count is chosen so
that one repetition takes at least `min_time` seconds; then every repetition
round runs each contender once, in a fresh random order.

Time is the process's CPU time (user and system: page faults and the
kernel's work count), not the wall clock: on a machine shared with others,
the wall clock also counts the time the process waits for a CPU.

`Contender.fresh` times the first call on each of many new inputs instead:
a str caches its UTF-8 form once something asks for it (orjson does), so
calling again on the same objects can be faster than a server, which encodes
each response once, ever sees.
"""

import random
import statistics
import time
import timeit


class Contender:
    def __init__(self, fn, *args, **kwargs):
        names = [f"a{k}" for k in range(len(args))]
        env = dict(zip(names, args), fn=fn) | {f"k_{k}": v for k, v in kwargs.items()}
        call = names + [f"{k}=k_{k}" for k in kwargs]
        self.timer = timeit.Timer(f"fn({', '.join(call)})", timer=time.process_time, globals=env)
        self.loops = 1
        self.calls = 1  # calls per loop
        self.samples = []

    @classmethod
    def fresh(cls, fn, make, count):
        """fn(c) once for each of `count` inputs from make(), made anew before each repetition."""
        c = cls(fn)
        c.timer = timeit.Timer("for c in copies: fn(c)", setup=f"copies = [make() for _ in range({count})]",
                               timer=time.process_time, globals={"fn": fn, "make": make})
        c.calls = count
        return c

    @classmethod
    def statement(cls, stmt, **names):
        """`stmt` itself, run as timeit runs it, with `names` as its local variables."""
        c = cls(None)
        setup = "; ".join(f"{k} = _names[{k!r}]" for k in names) or "pass"
        c.timer = timeit.Timer(stmt, setup=setup, timer=time.process_time, globals={"_names": names})
        return c

    def calibrate(self, min_time):
        if self.calls > 1:
            return
        while True:
            if self.timer.timeit(self.loops) >= min_time:
                return
            self.loops *= 2

    def run(self):
        self.samples.append(self.timer.timeit(self.loops) / (self.loops * self.calls))

    @property
    def median(self):
        return statistics.median(self.samples)

    @property
    def spread(self):
        """Interquartile range over the median: how steady the repetitions were."""
        q = statistics.quantiles(self.samples, n=4)
        return (q[2] - q[0]) / self.median


def medians(contenders, repeats=15, min_time=0.05, seed=1):
    """Times every Contender of the dict `contenders` `repeats` times; returns them."""
    for c in contenders.values():
        c.calibrate(min_time)
    order = list(contenders.values())
    shuffle = random.Random(seed).shuffle
    for _ in range(repeats):
        shuffle(order)
        for c in order:
            c.run()
    return contenders
