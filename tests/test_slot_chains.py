"""Chains of numbered slots: long random sequences of moves lose no slot and keep every order."""

import numpy as np

from support import blank, call, i32, kinds, layout


class Chains:
    """Two chains over one pair of arrays, and in `slots` what they have to hold."""

    def __init__(self, n, kind):
        self.kind, self.heads, self.slots = kind, [0, -1], [list(range(n)), []]
        self.next, self.prev = (layout(i32([-1] * n), kind) for _ in range(2))
        call(645, n=n, next=self.next, prev=self.prev)

    def grow(self, m):
        """Puts m new slots before chain 0; both outer ends of the new ones are left to the caller."""
        n, head = len(self.next), self.heads[0]
        self.next, self.prev = (layout(np.r_[array, i32([-7] * m)], self.kind) for array in (self.next, self.prev))
        call(651, first=n, stop=n + m, next=self.next, prev=self.prev)
        assert self.prev[n] == self.next[n + m - 1] == -7
        self.prev[n], self.next[n + m - 1] = -1, head
        if head >= 0:
            self.prev[head] = n + m - 1
        self.heads[0], self.slots[0] = n, [*range(n, n + m), *self.slots[0]]

    def move(self, source, place, n):
        """Moves the run of n slots at a place of chain `source` to the front of the other one."""
        slots, target = self.slots[source], 1 - source
        run, tlen = slots[place : place + n], len(self.slots[target])
        links = {"next": self.next, "prev": self.prev, "thead": self.heads[target], "shead": self.heads[source]}
        self.heads[target], self.heads[source], length = call(646, first=run[0], n=n, tlen=tlen, **links)
        assert length == tlen + n
        self.slots[source], self.slots[target] = slots[:place] + slots[place + n :], run + self.slots[target]

    def check(self):
        for head, slots in zip(self.heads, self.slots):
            target = blank(len(slots) + 2)
            assert call(647, cur=head, next=self.next, n=len(slots), base=1, target=target) == -1
            assert target.tolist() == [-7, *slots, -7]
            assert self.prev[slots].tolist() == [-1, *slots][: len(slots)]


@kinds
def test_random_moves(kind):
    rng = np.random.default_rng(3)
    chains = Chains(12, kind)
    for step in range(300):
        chains.check()
        source = int(rng.integers(2))
        length = len(chains.slots[source])
        if step % 60 == 59:
            chains.grow(int(rng.integers(1, 5)))
        elif length:
            place = int(rng.choice([0, rng.integers(length)]))
            chains.move(source, place, int(rng.choice([1, length - place, rng.integers(1, length - place + 1)])))
    assert sorted(chains.slots[0] + chains.slots[1]) == list(range(len(chains.next))) and len(chains.next) > 12


def test_a_move_touches_only_the_ends_of_the_run_and_their_neighbours():
    """The run 2, 3, 4 lies between 1 and 5 and goes before 6; all links that it does not need are broken."""
    next, prev = i32([-7, -7, 3, 4, 5, -7, -7]), i32([-7, -7, 1, -7, -7, -7, -7])
    assert call(646, thead=6, shead=0, first=2, next=next, tlen=3, n=3, prev=prev) == (2, 0, 6)
    assert next.tolist() == [-7, 5, 3, 4, 6, -7, -7] and prev.tolist() == [-7, -7, -1, -7, -7, 1, 4]


def test_runs_are_walked_and_listed():
    slots = [5, 2, 7, 0, 3]
    next = i32([3, -7, 7, -1, -7, 2, -7, 0])
    for n in range(1, 6):
        end, target = slots[n - 1], blank(6)
        assert call(650, cur=5, next=next, n=n) == end
        # The greatest slot leaves out the one that the walk starts from.
        assert call(649, cur=5, top=-1, next=next, n=n) == (end, max(slots[1:n], default=-1))
        assert call(649, cur=5, top=6, next=next, n=n) == (end, max([6, *slots[1:n]]))
        call(648, cur=5, next=next, n=n - 1, base=1, target=target)
        assert target.tolist() == [-7, *slots[1:n], *[-7] * (6 - n)]
