#!/usr/bin/python3
"""Resizes pictures of random shapes with Pillow, with OpenCV and with kit/picture, decodes random
files with Pillow and with kit/picture, and counts where they differ: compare_with_originals.py
PROBE [CASES [SEED]], a quarter as many files as resizes. PROBE is the library picture_probe of
the build. Needs python3-pil and python3-opencv of Debian 12. Ends with 1 if anything differs.
"""
import collections
import ctypes
import io
import random
import sys

import cv2
import numpy
from PIL import Image

TYPES = [numpy.uint8, numpy.uint16, numpy.float32]
OPENCV = {'opencv-nearest': cv2.INTER_NEAREST, 'opencv-linear': cv2.INTER_LINEAR,
          'opencv-area': cv2.INTER_AREA, 'opencv-cubic': cv2.INTER_CUBIC}
PILLOW = {'pil-nearest': Image.NEAREST, 'pil-box': Image.BOX, 'pil-bilinear': Image.BILINEAR,
          'pil-hamming': Image.HAMMING, 'pil-bicubic': Image.BICUBIC, 'pil-lanczos': Image.LANCZOS}


class Probe:
    def __init__(self, path):
        self.library = ctypes.CDLL(path)
        self.library.picture_text.restype = ctypes.c_char_p
        self.library.picture_pixels.restype = ctypes.c_void_p

    def taken(self, width, height, channels, kind):
        size = width * height * channels * numpy.dtype(TYPES[kind]).itemsize
        bytes_ = ctypes.string_at(self.library.picture_pixels(), size)
        return numpy.frombuffer(bytes_, TYPES[kind]).reshape(height, width, channels)

    def resize(self, picture, width, height, rule, box=None):
        picture = numpy.ascontiguousarray(picture)
        kind = [numpy.dtype(t) for t in TYPES].index(picture.dtype)
        old_height, old_width, channels = picture.shape
        info = (ctypes.c_uint32 * 6)(old_width, old_height, channels, kind, width, height)
        edges = (ctypes.c_float * 4)(*box) if box else None
        if self.library.picture_resize(picture.ctypes.data_as(ctypes.c_void_p), info,
                                       rule.encode(), edges):
            raise RuntimeError(self.library.picture_text().decode())
        return self.taken(width, height, channels, kind)

    def decode(self, data):
        """The pixels, the orientation and the remarks."""
        info = (ctypes.c_uint32 * 5)()
        if self.library.picture_decode(data, ctypes.c_size_t(len(data)), info):
            raise RuntimeError(self.library.picture_text().decode())
        return (self.taken(*info[:4]), info[4], self.library.picture_text().decode().splitlines())


def as_pillow(picture, width, height, rule, box=None):
    """Channel by channel where Pillow has no mode for the whole."""
    channels = picture.shape[2]
    if picture.dtype == numpy.uint8:
        mode = ['L', 'LA', 'RGB', 'RGBA'][channels - 1]
        image = Image.frombytes(mode, (picture.shape[1], picture.shape[0]), picture.tobytes())
        resized = numpy.array(image.resize((width, height), PILLOW[rule], box))
        return resized.reshape(height, width, channels)
    planes = []
    for channel in range(channels):
        plane = numpy.ascontiguousarray(picture[:, :, channel])
        if plane.dtype == numpy.uint16:
            plane = plane.astype(numpy.int32)
        resized = numpy.array(Image.fromarray(plane).resize((width, height), PILLOW[rule], box))
        if picture.dtype == numpy.uint16:
            resized = numpy.clip(resized, 0, 65535)
        planes.append(resized.astype(picture.dtype))
    return numpy.stack(planes, axis=2)


def as_opencv(picture, width, height, rule):
    resized = cv2.resize(picture, (width, height), interpolation=OPENCV[rule])
    return resized.reshape(height, width, picture.shape[2])


def random_size(chance):
    return chance.choice([1, 2, 3, chance.randint(1, 12), chance.randint(1, 70),
                          chance.randint(1, 300)])


def new_size(chance, size):
    """Any, the same, a half, another part, a multiple."""
    choices = [random_size(chance), size, size * 2, size * 3]
    choices += [size // part for part in (2, 3, 4, 5, 8) if size % part == 0]
    return chance.choice(choices + [random_size(chance)] * 3)


def random_picture(chance, width, height, channels, kind):
    state = numpy.random.RandomState(chance.randint(0, 2 ** 31))
    shape = (height, width, channels)
    if TYPES[kind] is numpy.float32:
        picture = state.standard_normal(shape) * chance.choice([1, 255, 1e-3])
    else:
        most = numpy.iinfo(TYPES[kind]).max
        picture = state.randint(0, most + 1, shape)
        if chance.random() < 0.3:  # extremes overshoot
            picture = numpy.where(picture > most // 2, most, 0)
    return picture.astype(TYPES[kind])


def random_case(chance):
    rule = chance.choice(list(OPENCV) + list(PILLOW))
    kind = chance.choice([0, 0, 1, 2])
    channels = chance.choice([1, 2, 3, 4])
    if rule in PILLOW and kind != 0:
        channels = chance.choice([1, 3])
    width, height = random_size(chance), random_size(chance)
    if rule in OPENCV and width * height * channels > 60000:
        width = min(width, 40)
    wanted = (new_size(chance, width), new_size(chance, height))
    if chance.random() < 0.2 and width % 2 == 0 and height % 2 == 0:
        wanted = (width // 2, height // 2)
    box = None
    if rule in PILLOW and chance.random() < 0.3:
        left, right = sorted(chance.uniform(0, width) for _ in range(2))
        top, bottom = sorted(chance.uniform(0, height) for _ in range(2))
        if chance.random() < 0.5:
            left, top = int(left), int(top)
            right, bottom = min(width, int(right) + 1), min(height, int(bottom) + 1)
        box = tuple(float(numpy.float32(edge)) for edge in (left, top, right, bottom))
        if not (box[0] < box[2] <= width and box[1] < box[3] <= height):
            box = None
    return rule, random_picture(chance, width, height, channels, kind), wanted, box


def random_file(chance):
    """The kind of a file and its bytes, as Pillow writes it."""
    width, height = random_size(chance), random_size(chance)
    mode = chance.choice(['L', 'RGB', 'RGB', 'RGBA', 'LA', 'CMYK', '1', 'P', 'I;16', 'F'])
    state = numpy.random.RandomState(chance.randint(0, 2 ** 31))
    shape = (chance.randint(1, 20), chance.randint(1, 20), 4)
    small = state.randint(0, 256, shape).astype(numpy.uint8)
    smooth = cv2.resize(small, (width, height), interpolation=cv2.INTER_CUBIC)
    if mode == 'I;16':
        image = Image.fromarray(smooth[:, :, 0].astype(numpy.uint16) * 257 + 13)
    elif mode == 'F':
        image = Image.fromarray(smooth[:, :, 0].astype(numpy.float32) / 77)
    else:
        image = Image.fromarray(smooth)
        image = image.convert('RGB').quantize(chance.choice([2, 5, 16, 200])) if mode == 'P' else (
            image if mode == 'RGBA' else image.convert('RGB').convert(mode) if mode != 'LA'
            else image.convert('LA'))
    kinds = {'JPEG': ['L', 'RGB', 'CMYK'], 'PNG': ['L', 'RGB', 'RGBA', 'LA', '1', 'P', 'I;16'],
             'WEBP': ['RGB', 'RGBA'],
             'TIFF': ['L', 'RGB', 'RGBA', 'LA', 'CMYK', '1', 'P', 'I;16', 'F'],
             'PPM': ['L', 'RGB', '1'], 'BMP': ['L', 'RGB', '1', 'P']}
    kind = chance.choice([kind for kind, modes in kinds.items() if mode in modes])
    options = {}
    if kind == 'JPEG':
        options = {'quality': chance.randint(1, 100), 'progressive': chance.random() < 0.3,
                   'optimize': chance.random() < 0.3}
        if mode == 'RGB':
            options['subsampling'] = chance.choice([0, 1, 2])
    elif kind == 'WEBP':
        options = {'quality': chance.randint(0, 100), 'lossless': chance.random() < 0.4,
                   'method': chance.randint(0, 3)}
    elif kind == 'TIFF':
        options = {'compression': chance.choice(
            [None, 'tiff_lzw', 'tiff_adobe_deflate', 'packbits'] +
            (['group3', 'group4'] if mode == '1' else []) +
            (['jpeg'] if mode in ('L', 'RGB') else []))}
    file = io.BytesIO()
    image.save(file, kind, **options)
    return f'{kind} {mode}', file.getvalue()


def compare_files(probe, cases, chance):
    """How many of the files are the same."""
    from make_references import as_pillow_decodes
    counts, same = collections.Counter(), collections.Counter()
    for _ in range(cases):
        key, data = random_file(chance)
        counts[key] += 1
        wanted = as_pillow_decodes(data)[0]
        given = probe.decode(data)[0]
        if wanted.dtype == given.dtype and wanted.shape == given.shape and (
                wanted.tobytes() == given.tobytes()):
            same[key] += 1
        elif counts[key] - same[key] <= 3:
            print(f'{key}: {wanted.shape} {wanted.dtype} became {given.shape} {given.dtype}')
    for key in sorted(counts):
        print(f'{key}: {same[key]} of {counts[key]} the same')
    return sum(same.values())


def main():
    probe = Probe(sys.argv[1])
    cases = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    chance = random.Random(seed)
    counts = collections.Counter()
    differing = collections.Counter()
    for _ in range(cases):
        rule, picture, (width, height), box = random_case(chance)
        key = f'{rule} {picture.dtype}'
        counts[key] += 1
        if rule in PILLOW:
            wanted = as_pillow(picture, width, height, rule, box)
        else:
            wanted = as_opencv(picture, width, height, rule)
        given = probe.resize(picture, width, height, rule, box)
        if wanted.tobytes() == given.tobytes():
            continue
        differing[key] += 1
        if differing[key] <= 5:
            where = numpy.argwhere(wanted != given)
            worst = numpy.max(numpy.abs(wanted.astype(float) - given.astype(float)))
            print(f'{key}: {picture.shape} to {(height, width)} box {box}: {len(where)} values of '
                  f'{wanted.size} differ, first {where[:3].tolist()}, at most by {worst}')
    for key in sorted(counts):
        print(f'{key}: {counts[key] - differing[key]} of {counts[key]} the same')
    files = cases // 4
    same = compare_files(probe, files, chance)
    print(f'seed {seed}: {sum(counts.values()) - sum(differing.values())} of {cases} resizes the '
          f'same, {same} of {files} files')
    return 1 if differing or same != files else 0


if __name__ == '__main__':
    sys.exit(main())
