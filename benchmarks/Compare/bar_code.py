"""Reads the number that a test clip carries in its pixels; the same rules as Playout/BarCode.h.

The strip is 40 cells wide: each pair of cells is a bit (white and black is 1), 16 bits of the number and 4 of
its remainder by 13, plus one.
"""

CELLS = 40
NUMBER_BITS = 16
CHECK_BITS = 4
MODULUS = 13
STRIPS_PER_HEIGHT = 18
LEAST_CONTRAST = 64


def row_of(height):
    """The line in the middle of the strip of a picture."""
    return height // (2 * STRIPS_PER_HEIGHT)


def read(line, step=1):
    """The number in one line of pixels of one byte of brightness each, `step` bytes apart; None when it is unclear."""
    width = len(line) // step
    cells = []
    for cell in range(CELLS):
        middle = (2 * cell + 1) * width // (2 * CELLS)
        columns = [middle + eighths * width // (8 * CELLS) for eighths in (-2, -1, 1, 2)]
        cells.append(sum(line[column * step] for column in columns) // len(columns))
    pairs = list(zip(cells[::2], cells[1::2]))
    if min(map(max, pairs)) < max(map(min, pairs)) + LEAST_CONTRAST:
        return None
    bits = 0
    for left, right in pairs:
        bits = bits << 1 | (left > right)
    number, check = bits >> CHECK_BITS, bits & ((1 << CHECK_BITS) - 1)
    return number if check == number % MODULUS + 1 else None


def draw(number, width):
    """The line that `read` reads: for tests."""
    bits = number << CHECK_BITS | (number % MODULUS + 1)
    line = bytearray(width)
    for bit in range(NUMBER_BITS + CHECK_BITS):
        white = 2 * bit if bits >> (NUMBER_BITS + CHECK_BITS - 1 - bit) & 1 else 2 * bit + 1
        begin, end = width * white // CELLS, width * (white + 1) // CELLS
        line[begin:end] = b"\xeb" * (end - begin)
    return bytes(line)
