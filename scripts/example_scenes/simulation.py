"""Noise that depends on a seed alone, rotations and projections. Metres and radians."""

import math
import random

GON = math.pi / 200.0
DEG = math.pi / 180.0


class Noise:
    """Normal and uniform deviates that depend on the seed alone.

    Box-Muller on random.random(), whose sequence Python guarantees for a seed; its own normal
    deviates may change between versions.
    """

    def __init__(self, seed):
        self._random = random.Random(seed)

    def uniform(self, low, high):
        return low + (high - low) * self._random.random()

    def normal(self, sigma):
        u = 1.0 - self._random.random()
        v = self._random.random()
        return sigma * math.sqrt(-2.0 * math.log(u)) * math.cos(2.0 * math.pi * v)

    def normals(self, *sigmas):
        return [self.normal(s) for s in sigmas]


def add(a, b):
    return [p + q for p, q in zip(a, b)]


def sub(a, b):
    return [p - q for p, q in zip(a, b)]


def scale(a, f):
    return [p * f for p in a]


def dot(a, b):
    return sum(p * q for p, q in zip(a, b))


def cross(a, b):
    return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]]


def unit(a):
    return scale(a, 1.0 / math.sqrt(dot(a, a)))


def matrix_times(m, v):
    return [dot(row, v) for row in m]


def transposed(m):
    return [list(column) for column in zip(*m)]


def rotation_from_opk(omega, phi, kappa):
    """R = Rx(omega) Ry(phi) Rz(kappa); its columns are the image axes in object space."""
    sw, cw = math.sin(omega), math.cos(omega)
    sf, cf = math.sin(phi), math.cos(phi)
    sk, ck = math.sin(kappa), math.cos(kappa)
    return [
        [cf * ck, -cf * sk, sf],
        [cw * sk + sw * sf * ck, cw * ck - sw * sf * sk, -sw * cf],
        [sw * sk - cw * sf * ck, sw * ck + cw * sf * sk, cw * cf],
    ]


def opk_from_rotation(r):
    return [math.atan2(-r[1][2], r[2][2]), math.asin(r[0][2]), math.atan2(-r[0][1], r[0][0])]


def rotation_towards(centre, target, roll):
    """Image axes of a camera at centre that looks at target, x axis level, then turned by roll."""
    z = unit(sub(centre, target))
    x = cross([0.0, 0.0, 1.0], z)
    x = unit(x) if dot(x, x) > 1e-6 else [1.0, 0.0, 0.0]
    y = cross(z, x)
    level = transposed([x, y, z])
    turn = [[math.cos(roll), -math.sin(roll), 0.0], [math.sin(roll), math.cos(roll), 0.0],
            [0.0, 0.0, 1.0]]
    columns = transposed(turn)
    return transposed([matrix_times(level, column) for column in columns])


def project(rotation, centre, c, point):
    """Image coordinates x = z Ux/Uz, y = z Uy/Uz with z = -c and U = transposed(R) (X - Xo)."""
    u = matrix_times(transposed(rotation), sub(point, centre))
    return -c * u[0] / u[2], -c * u[1] / u[2]


def in_front(rotation, centre, point):
    return matrix_times(transposed(rotation), sub(point, centre))[2] < 0.0
