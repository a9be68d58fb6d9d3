#!/usr/bin/python3
"""Makes the tiny pictures in files/, and what Pillow makes of them (decoded.txt) and what Pillow
and OpenCV make of resizing (resized.txt), anew: make_references.py [FOLDER]. Needs python3-pil
and python3-opencv of Debian 12. Files that are there already are left alone, since an encoder
of another version writes other bytes; delete one to have it made.

decoded.txt   name, width, height, channels, type, orientation, hash of the values, upright; where
              the file has 16 bits a colour, Pillow keeps the upper 8
resized.txt   rule, type, channels, old width and height, new width and height, box or "-", hash

Hashes are FNV-1a of 64 bits, over values in little-endian order. The pictures that are resized are
made of numbers that both sides can make: see `made_picture`."""
import io
import pathlib
import struct
import sys
import zlib

import numpy
from PIL import Image, ImageOps

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from compare_with_originals import OPENCV, PILLOW, as_opencv, as_pillow  # noqa: E402

WIDTH, HEIGHT = 23, 17


def fnv(data):
    value = 0xcbf29ce484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001b3 & 0xffffffffffffffff
    return f'{value:016x}'


# ---- the files

def photo(channels, most=255, width=WIDTH, height=HEIGHT):
    """Something smooth, with an edge and some noise."""
    state = numpy.random.RandomState(channels)
    y, x = numpy.mgrid[0:height, 0:width]
    planes = [(x * (3 + c) + y * (5 - c)) % 97 / 97 * 0.6 + (x > y + c) * 0.3
              for c in range(channels)]
    values = numpy.stack(planes, axis=2) + state.uniform(0, 0.1, (height, width, channels))
    return numpy.round(values * most).astype(numpy.uint8 if most < 256 else numpy.uint16)


def image(mode):
    if mode == '1':
        return Image.fromarray(photo(1)[:, :, 0]).convert('1')
    if mode == 'P':
        return Image.fromarray(photo(3)).quantize(16)
    if mode == 'I;16':
        return Image.fromarray(photo(1, 65535)[:, :, 0])
    if mode == 'F':
        return Image.fromarray((photo(1, 65535)[:, :, 0] / 65535).astype(numpy.float32))
    channels = {'L': 1, 'LA': 2, 'RGB': 3, 'RGBA': 4, 'CMYK': 4}[mode]
    return Image.frombytes(mode, (WIDTH, HEIGHT), photo(channels).tobytes())


def saved(mode, kind, **options):
    file = io.BytesIO()
    image(mode).save(file, kind, **options)
    return file.getvalue()


def exif(orientation):
    data = Image.Exif()
    data[0x0112] = orientation
    return data.tobytes()


def png(channels, bits, interlaced=False, palette=None, chunks=b''):
    """channels as photo takes them; chunks stand before the pixels."""
    colour = 3 if palette else {1: 0, 2: 4, 3: 2, 4: 6}[channels]
    values = photo(channels, (1 << bits) - 1).astype(int)
    if palette:
        values %= len(palette) // 3

    def packed(rows):
        data = b''
        for number, row in enumerate(rows):
            if row.size == 0:
                continue
            flat = row.reshape(-1)
            if bits == 16:
                line = flat.astype('>u2').tobytes()
            else:
                text = ''.join(format(v, f'0{bits}b') for v in flat)
                text += '0' * (-len(text) % 8)
                line = bytes(int(text[i:i + 8], 2) for i in range(0, len(text), 8))
            step = max(1, (1 if palette else channels) * bits // 8)
            if number % 2 == 1:  # the filter "sub" in every second row
                line = bytes((line[i] - (line[i - step] if i >= step else 0)) % 256
                             for i in range(len(line)))
            data += bytes([number % 2]) + line
        return data

    passes = [(0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2),
              (0, 1, 1, 2)] if interlaced else [(0, 0, 1, 1)]
    pixels = b''.join(packed(values[y::down, x::right]) for x, y, right, down in passes)

    def chunk(kind, data):
        check = struct.pack('>I', zlib.crc32(kind + data))
        return struct.pack('>I', len(data)) + kind + data + check

    head = struct.pack('>IIBBBBB', WIDTH, HEIGHT, bits, colour, 0, 0, int(interlaced))
    result = b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', head)
    if palette:
        result += chunk(b'PLTE', palette)
    for kind, data in chunks or []:
        result += chunk(kind, data)
    return result + chunk(b'IDAT', zlib.compress(pixels, 9)) + chunk(b'IEND', b'')


def palette_of(colours):
    return bytes((i * 37 + c * 85) % 256 for i in range(colours) for c in range(3))


def tiff(values, meaning, order='<', tile=None, rows=None, planes=False, tags=()):
    """values [height, width, samples], not compressed. tags: more (tag, type, values)."""
    height, width, samples = values.shape
    values = values.astype(values.dtype.newbyteorder(order))
    pieces = []
    for plane in range(samples if planes else 1):
        part = values[:, :, plane:plane + 1] if planes else values
        if tile:
            for y in range(0, height, tile):
                for x in range(0, width, tile):
                    block = numpy.zeros((tile, tile, part.shape[2]), part.dtype)
                    cut = part[y:y + tile, x:x + tile]
                    block[:cut.shape[0], :cut.shape[1]] = cut
                    pieces.append(block.tobytes())
        else:
            for y in range(0, height, rows or height):
                pieces.append(part[y:y + (rows or height)].tobytes())
    kind = 3 if values.dtype.kind == 'f' else 1
    entries = [(256, 4, [width]), (257, 4, [height]), (258, 3, [values.itemsize * 8] * samples),
               (259, 3, [1]), (262, 3, [meaning]), (277, 3, [samples]),
               (284, 3, [2 if planes else 1]), (339, 3, [kind] * samples)]
    where, sizes = (324, 325) if tile else (273, 279)
    if tile:
        entries += [(322, 4, [tile]), (323, 4, [tile])]
    else:
        entries += [(278, 4, [rows or height])]
    entries += [(where, 4, [0] * len(pieces)), (sizes, 4, [len(piece) for piece in pieces])]
    entries = sorted(entries + list(tags))

    def laid_out(entries):
        place = 8 + 2 + 12 * len(entries) + 4
        directory, behind = struct.pack(order + 'H', len(entries)), b''
        for tag, kind, numbers in entries:
            data = struct.pack(order + {3: 'H', 4: 'I'}[kind] * len(numbers), *numbers)
            directory += struct.pack(order + 'HHI', tag, kind, len(numbers))
            if len(data) <= 4:
                directory += data.ljust(4, b'\0')
            else:
                directory += struct.pack(order + 'I', place + len(behind))
                behind += data
        return directory + b'\0\0\0\0' + behind, place + len(behind)

    _, start = laid_out(entries)
    offsets = [start + sum(len(p) for p in pieces[:i]) for i in range(len(pieces))]
    entries = [(t, k, offsets if t == where else v) for t, k, v in entries]
    head = (b'II*\0' if order == '<' else b'MM\0*') + struct.pack(order + 'I', 8)
    return head + laid_out(entries)[0] + b''.join(pieces)


def bmp32(has_alpha):
    values = photo(4)[:, :, [2, 1, 0, 3]]
    head = struct.pack('<IiiHHIIiiII', 108, WIDTH, -HEIGHT, 1, 32, 3, 0, 0, 0, 0, 0)
    masks = struct.pack('<IIII', 0xff0000, 0xff00, 0xff, 0xff000000 if has_alpha else 0)
    head += masks + b'BGRs' + bytes(48)
    begin = struct.pack('<III', 14 + 108 + values.size, 0, 14 + 108)
    return b'BM' + begin + head + values.tobytes()


def files():
    """Name and bytes of each; the bytes by a function, to be called where the file is not there."""
    for name in ('ycck.jpg', 'plaincmyk.jpg', 'adobergb.jpg'):  # Pillow does not write these
        yield name, None
    yield 'rgb444.jpg', lambda: saved('RGB', 'JPEG', quality=90, subsampling=0)
    yield 'rgb422.jpg', lambda: saved('RGB', 'JPEG', quality=80, subsampling=1)
    yield 'rgb420.jpg', lambda: saved('RGB', 'JPEG', quality=70, subsampling=2)
    yield 'grey.jpg', lambda: saved('L', 'JPEG', quality=85)
    yield 'progressive.jpg', lambda: saved('RGB', 'JPEG', quality=75, progressive=True)
    yield 'cmyk.jpg', lambda: saved('CMYK', 'JPEG', quality=90)
    yield 'profile.jpg', lambda: saved('L', 'JPEG', icc_profile=b'no profile at all')
    for number in (3, 6, 8):
        yield f'turned{number}.jpg', lambda n=number: saved('RGB', 'JPEG', exif=exif(n))
    for bits in (1, 2, 4, 8, 16):
        yield f'grey{bits}.png', lambda b=bits: png(1, b)
        yield f'grey{bits}i.png', lambda b=bits: png(1, b, True)
    for channels, name in ((2, 'greyalpha'), (3, 'rgb'), (4, 'rgba')):
        for bits in (8, 16):
            yield f'{name}{bits}.png', lambda c=channels, b=bits: png(c, b)
            yield f'{name}{bits}i.png', lambda c=channels, b=bits: png(c, b, True)
    for bits in (1, 2, 4, 8):
        colours = min(200, 1 << bits)
        yield f'palette{bits}.png', lambda b=bits, n=colours: png(1, b, palette=palette_of(n))
    yield 'palette8i.png', lambda: png(1, 8, True, palette=palette_of(256))
    alphas = [(b'tRNS', bytes([0, 128, 255]))]
    yield 'palettealpha.png', lambda: png(1, 4, palette=palette_of(16), chunks=alphas)
    grey = struct.pack('>H', int(photo(1)[3, 5, 0]))
    yield 'greykey.png', lambda: png(1, 8, chunks=[(b'tRNS', grey)])
    colour = struct.pack('>HHH', *photo(3)[3, 5].tolist())
    yield 'rgbkey.png', lambda: png(3, 8, chunks=[(b'tRNS', colour)])
    yield 'turned6.png', lambda: png(3, 8, chunks=[(b'eXIf', exif(6)[6:])])
    yield 'gamma.png', lambda: png(3, 8, chunks=[(b'gAMA', struct.pack('>I', 100000))])
    yield 'lossy.webp', lambda: saved('RGB', 'WEBP', quality=70)
    yield 'lossyalpha.webp', lambda: saved('RGBA', 'WEBP', quality=70)
    yield 'lossless.webp', lambda: saved('RGB', 'WEBP', lossless=True)
    yield 'losslessalpha.webp', lambda: saved('RGBA', 'WEBP', lossless=True, exact=True)
    yield 'turned8.webp', lambda: saved('RGB', 'WEBP', quality=50, exif=exif(8)[6:])
    yield 'animated.webp', lambda: saved('RGB', 'WEBP', save_all=True, lossless=True,
                                         append_images=[image('RGB').rotate(180)])
    yield 'animatedalpha.webp', lambda: saved('RGBA', 'WEBP', save_all=True, lossless=True,
                                              append_images=[image('RGBA').rotate(180)])
    for mode, name in (('1', 'bits'), ('L', 'grey'), ('LA', 'greyalpha'), ('RGB', 'rgb'),
                       ('RGBA', 'rgba'), ('P', 'palette'), ('I;16', 'grey16'), ('F', 'float'),
                       ('CMYK', 'cmyk')):
        yield f'{name}.tif', lambda m=mode: saved(m, 'TIFF')
    for name in ('tiff_lzw', 'tiff_adobe_deflate', 'packbits', 'jpeg'):
        yield f'rgb_{name}.tif', lambda n=name: saved('RGB', 'TIFF', compression=n)
    yield 'bits_group4.tif', lambda: saved('1', 'TIFF', compression='group4')
    yield 'grey16_lzw.tif', lambda: saved('I;16', 'TIFF', compression='tiff_lzw')
    yield 'float_deflate.tif', lambda: saved('F', 'TIFF', compression='tiff_adobe_deflate')
    yield 'turned5.tif', lambda: tiff(photo(3), 2, tags=[(274, 3, [5])])
    yield 'big.tif', lambda: tiff(photo(3), 2, order='>')
    yield 'big16.tif', lambda: tiff(photo(1, 65535), 1, order='>')
    yield 'rgb16.tif', lambda: tiff(photo(3, 65535), 2)
    yield 'rgba16.tif', lambda: tiff(photo(4, 65535), 2, tags=[(338, 3, [2])])
    yield 'strips.tif', lambda: tiff(photo(3), 2, rows=5)
    yield 'tiles.tif', lambda: tiff(photo(3), 2, tile=16)
    yield 'greytiles.tif', lambda: tiff(photo(1), 1, tile=16)
    yield 'planes.tif', lambda: tiff(photo(3), 2, rows=6, planes=True)
    yield 'white.tif', lambda: tiff(photo(1), 0)
    yield 'white16.tif', lambda: tiff(photo(1, 65535), 0)
    yield 'floatbig.tif', lambda: tiff((photo(1) / 7).astype(numpy.float32), 1, order='>')
    yield 'multiplied.tif', lambda: tiff(photo(4), 2, tags=[(338, 3, [1])])
    yield 'unnamed.tif', lambda: tiff(photo(4), 2, tags=[(338, 3, [0])])
    yield 'five.tif', lambda: tiff(photo(5), 2, tags=[(338, 3, [2, 0])])
    yield 'two.tif', lambda: saved('L', 'TIFF', save_all=True, append_images=[image('RGB')])
    for mode, name in (('1', 'bits.pbm'), ('L', 'grey.pgm'), ('RGB', 'rgb.ppm')):
        yield name, lambda m=mode: saved(m, 'PPM')
    yield 'plain.pbm', lambda: b'P1 # bits\n3 2\n010\n1 1 0\n'
    yield 'plain.pgm', lambda: b'P2\n3 2\n# grey\n15\n0 1 2\n13 14 15\n'
    yield 'plain.ppm', lambda: b'P3 2 1 255 1 2 3 253 254 255\n'
    yield 'few.pgm', lambda: b'P5\n5 3\n100\n' + bytes(range(0, 105, 7))
    yield 'wide.pgm', lambda: b'P5\n4 2\n65535\n' + struct.pack('>8H', *range(0, 65536, 9000))
    yield 'odd.pgm', lambda: b'P5\n4 2\n1000\n' + struct.pack('>8H', *range(0, 1001, 125)[:8])
    for mode, name in (('1', 'bits'), ('L', 'grey'), ('P', 'palette'), ('RGB', 'rgb')):
        yield f'{name}.bmp', lambda m=mode: saved(m, 'BMP')
    yield 'rgbx.bmp', lambda: bmp32(False)
    yield 'rgba.bmp', lambda: bmp32(True)


def as_pillow_decodes(data):
    """The values as Pillow has them, upright, brought to grey, grey and alpha, RGB or RGBA."""
    picture = Image.open(io.BytesIO(data))
    orientation = picture.getexif().get(0x0112, 1)
    picture.load()
    if picture.format != 'TIFF':  # of TIFF they are so when they are loaded
        picture = ImageOps.exif_transpose(picture)
    has_key = 'transparency' in picture.info
    mode = picture.mode
    if mode == 'P':
        picture = picture.convert('RGBA' if has_key else 'RGB')
    elif mode == '1':
        picture = picture.convert('L')
    elif mode == 'L' and has_key:
        picture = picture.convert('LA')
    elif mode == 'RGB' and has_key:
        picture = picture.convert('RGBA')
    elif mode in ('CMYK', 'RGBX'):
        picture = picture.convert('RGB')
    elif mode == 'PA':
        picture = picture.convert('RGBA')
    values = numpy.array(picture)
    if values.ndim == 2:
        values = values[:, :, None]
    if data[:8] == b'\x89PNG\r\n\x1a\n' and data[25] == 4 and mode == 'RGBA':
        values = values[:, :, 2:]  # 16 bits of grey and alpha are RGBA there
    if values.dtype.kind in 'iu' and values.itemsize > 1:
        values = values.astype(numpy.uint16)
    return values, orientation, mode


# ---- pictures that are resized

def made_picture(width, height, channels, kind):
    """Numbers of a plain generator; of uint8 the upper 8 of 32 bits, of uint16 the upper 16, of
    float32 the upper 24 as a part of 1, less a half."""
    state = 12345
    numbers = numpy.empty(width * height * channels, numpy.uint64)
    for i in range(numbers.size):
        state = (state * 1664525 + 1013904223) & 0xffffffff
        numbers[i] = state
    if kind == 'uint8':
        values = (numbers >> 24).astype(numpy.uint8)
    elif kind == 'uint16':
        values = (numbers >> 16).astype(numpy.uint16)
    else:
        values = ((numbers >> 8).astype(numpy.float32) / 16777216 - numpy.float32(0.5))
        values = values.astype(numpy.float32)
    return values.reshape(height, width, channels)


SHAPES = [((16, 12), (8, 6)), ((16, 12), (32, 24)), ((17, 13), (17, 13)), ((17, 13), (5, 7)),
          ((17, 13), (40, 31)), ((1, 1), (4, 3)), ((9, 11), (1, 1)), ((1, 9), (5, 4)),
          ((30, 20), (10, 5)), ((30, 20), (10, 31)), ((20, 30), (20, 7)), ((31, 19), (64, 19)),
          ((10, 49), (5, 1))]
BOXES = [((17, 13), (8, 8), (2, 3, 14, 12)), ((17, 13), (20, 20), (0.5, 1.25, 9.75, 13))]


def resizes():
    for rule in list(OPENCV) + list(PILLOW):
        for kind in ('uint8', 'uint16', 'float32'):
            for channels in (1, 2, 3, 4):
                if rule in PILLOW and kind != 'uint8' and channels in (2, 4):
                    continue
                for old, new in SHAPES:
                    yield rule, kind, channels, old, new, None
                if rule in PILLOW:
                    for old, new, box in BOXES:
                        yield rule, kind, channels, old, new, box


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent)
    (folder / 'files').mkdir(exist_ok=True)
    lines = []
    for name, make in files():
        path = folder / 'files' / name
        if not path.exists():
            path.write_bytes(make())
        values, orientation, mode = as_pillow_decodes(path.read_bytes())
        height, width, channels = values.shape
        lines.append(f'{name} {width} {height} {channels} {values.dtype} {orientation} '
                     f'{fnv(values.astype(values.dtype.newbyteorder("<")).tobytes())}\n')
    (folder / 'decoded.txt').write_text(''.join(lines))
    lines = []
    for rule, kind, channels, old, new, box in resizes():
        picture = made_picture(*old, channels, kind)
        resized = (as_pillow(picture, *new, rule, box) if rule in PILLOW
                   else as_opencv(picture, *new, rule))
        edges = ','.join(str(edge) for edge in box) if box else '-'
        lines.append(f'{rule} {kind} {channels} {old[0]} {old[1]} {new[0]} {new[1]} {edges} '
                     f'{fnv(resized.astype(resized.dtype.newbyteorder("<")).tobytes())}\n')
    (folder / 'resized.txt').write_text(''.join(lines))


if __name__ == '__main__':
    main()
