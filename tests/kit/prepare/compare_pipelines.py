#!/usr/bin/python3
"""Prepares photographs with `vorn prepare` and with the same steps as training code writes them in
Pillow, NumPy and OpenCV, and counts where a bit differs: compare_pipelines.py VORN FOLDER [RECIPE].
VORN is the command of a build, FOLDER holds photographs, such as those of examples/photographs; of
each one there are variants: JPEG in eight orientations, grey, alpha, 16 bits, odd and small sizes.
Needs python3-pil, python3-numpy and python3-opencv of Debian 12. Ends with 1 if anything differs.

The functions below are written as such code is, with the library's own names, and know nothing of
kit/prepare. What no such code does is left out: Pillow clips 16 bits of grey at 255."""
import collections
import json
import pathlib
import subprocess
import sys
import tempfile

import cv2
import numpy
from PIL import Image, ImageOps

MEAN = numpy.array([0.485, 0.456, 0.406], numpy.float32)
DEVIATION = numpy.array([0.229, 0.224, 0.225], numpy.float32)
ALL_ORIENTATIONS = 8

# ---- Pictures as training code reads them


def pil(path, mode='RGB', exif=True):
    image = Image.open(path)
    if exif:
        image = ImageOps.exif_transpose(image)
    if image.mode in ('I', 'I;16'):
        image = Image.fromarray((numpy.array(image) >> 8).astype(numpy.uint8))
    return image.convert(mode)


def rgb(path, flags=cv2.IMREAD_COLOR):
    return cv2.cvtColor(cv2.imread(str(path), flags), cv2.COLOR_BGR2RGB)


# ---- Steps


def resize_shorter(image, size, how):
    """torchvision.transforms.Resize(size) of a PIL image."""
    width, height = image.size
    short, long = min(width, height), max(width, height)
    other = int(size * long / short)
    return image.resize((size, other) if width <= height else (other, size), how)


def center_crop(image, size):
    """torchvision.transforms.CenterCrop of a PIL image."""
    width, height = image.size
    top, left = int(round((height - size) / 2.0)), int(round((width - size) / 2.0))
    return image.crop((left, top, left + size, top + size))


def to_tensor(image):
    return numpy.array(image).transpose(2, 0, 1).astype(numpy.float32) / numpy.float32(255)


def normalized(tensor):
    return (tensor - MEAN[:, None, None]) / DEVIATION[:, None, None]


def cv2_shorter(image, size, how=cv2.INTER_LINEAR):
    height, width = image.shape[:2]
    if height < width:
        return cv2.resize(image, (int(width * size / height), size), interpolation=how)
    return cv2.resize(image, (size, int(height * size / width)), interpolation=how)


def cv2_crop(image, size):
    top, left = (image.shape[0] - size) // 2, (image.shape[1] - size) // 2
    return image[top:top + size, left:left + size]


def letterbox(image, shape, colour=(114, 114, 114), centre=True, scale_up=True):
    """As detectors have it."""
    ratio = min(shape[0] / image.shape[0], shape[1] / image.shape[1])
    if not scale_up:
        ratio = min(ratio, 1.0)
    unpadded = int(round(image.shape[1] * ratio)), int(round(image.shape[0] * ratio))
    dw, dh = shape[1] - unpadded[0], shape[0] - unpadded[1]
    if image.shape[:2] != unpadded[::-1]:
        image = cv2.resize(image, unpadded, interpolation=cv2.INTER_LINEAR)
    if not centre:
        return cv2.copyMakeBorder(image, 0, dh, 0, dw, cv2.BORDER_CONSTANT, value=colour)
    top, bottom = int(round(dh / 2 - 0.1)), int(round(dh / 2 + 0.1))
    left, right = int(round(dw / 2 - 0.1)), int(round(dw / 2 + 0.1))
    return cv2.copyMakeBorder(image, top, bottom, left, right, cv2.BORDER_CONSTANT, value=colour)


def planes(image):
    return numpy.ascontiguousarray(image.transpose(2, 0, 1))


# ---- Whole recipes: what the ready ones promise, and some in JSON


def imagenet_torchvision(path):
    return normalized(to_tensor(center_crop(resize_shorter(pil(path), 256, Image.BILINEAR), 224)))


def imagenet_opencv(path):
    image = cv2_crop(cv2_shorter(rgb(path), 256), 224).astype(numpy.float32) / 255
    return planes((image - MEAN) / DEVIATION)


def imagenet_bgr(path):
    image = cv2_crop(cv2_shorter(cv2.imread(str(path)), 256), 224).astype(numpy.float32)
    return planes(image - numpy.array([103.939, 116.779, 123.68], numpy.float32))


def detector_letterbox(path):
    image = letterbox(cv2.imread(str(path)), (320, 416))
    return numpy.ascontiguousarray(image[:, :, ::-1].transpose(2, 0, 1)).astype(numpy.float32) / 255


def stretched(path):
    return cv2.resize(rgb(path), (160, 120), interpolation=cv2.INTER_LINEAR)


def signed_one(path):
    return planes(stretched(path)).astype(numpy.float32) / numpy.float32(127.5) - numpy.float32(1)


def zero_one(path):
    return planes(stretched(path)).astype(numpy.float32) / 255


def bytes_bgr(path):
    return cv2.resize(cv2.imread(str(path)), (160, 120), interpolation=cv2.INTER_LINEAR)


def grey(path):
    image = cv2.cvtColor(cv2.imread(str(path)), cv2.COLOR_BGR2GRAY)
    return (cv2.resize(image, (160, 120)).astype(numpy.float32) / 255)[None]


def torchvision_stored(path):
    return normalized(to_tensor(center_crop(
        resize_shorter(pil(path, exif=False), 232, Image.BICUBIC), 224)))


def pil_grey(path):
    image = pil(path, 'L').resize((160, 120), Image.LANCZOS)
    return numpy.array(image).astype(numpy.float32)[None] / numpy.float32(255)


def pil_over_white(path):
    image = pil(path, 'RGBA')
    white = Image.new('RGBA', image.size, (255, 255, 255, 255))
    image = Image.alpha_composite(white, image).convert('RGB').resize((160, 120), Image.BOX)
    return numpy.array(image)


def area_small(path):
    return cv2.resize(rgb(path), (160, 120), interpolation=cv2.INTER_AREA)


def cubic_floats(path):
    image = rgb(path).astype(numpy.float32)
    return planes(cv2.resize(image, (160, 120), interpolation=cv2.INTER_CUBIC) / 255)


def stored_turned(path):
    image = rgb(path, cv2.IMREAD_COLOR | cv2.IMREAD_IGNORE_ORIENTATION)
    return planes(cv2.resize(image, (160, 120), interpolation=cv2.INTER_NEAREST))


def deep_linear(path):
    image = rgb(path, cv2.IMREAD_COLOR | cv2.IMREAD_ANYDEPTH)
    return planes(cv2.resize(image, (160, 120)).astype(numpy.float32) / 65535)


def deep_grey(path):
    image = cv2.imread(str(path), cv2.IMREAD_COLOR | cv2.IMREAD_ANYDEPTH)
    image = cv2.resize(cv2.cvtColor(image, cv2.COLOR_BGR2GRAY), (160, 120))
    return image[None].astype(numpy.float32)


def text_corner(path):
    return letterbox(cv2.imread(str(path)), (96, 320), (0, 0, 0), centre=False)


def never_larger(path):
    return letterbox(rgb(path), (480, 640), scale_up=False)


def quantised(path):
    image = stretched(path).astype(numpy.float32) / numpy.float32(127.5) - numpy.float32(1)
    stored = numpy.rint(image / numpy.float32(0.0078125)) + 3
    return numpy.clip(stored, -128, 127).astype(numpy.int8)


Recipe = collections.namedtuple('Recipe', 'function shape type json fits')


def every(_):
    return True


FLOAT, BYTE, INT8 = 0, 4, 2
LINEAR = {'rule': 'opencv-linear'}
RECIPES = {
    'imagenet-torchvision': Recipe(imagenet_torchvision, (3, 224, 224), FLOAT, None, every),
    'imagenet-opencv': Recipe(imagenet_opencv, (3, 224, 224), FLOAT, None, every),
    'imagenet-bgr': Recipe(imagenet_bgr, (3, 224, 224), FLOAT, None, every),
    'detector-letterbox': Recipe(detector_letterbox, (3, 320, 416), FLOAT, None, every),
    'signed-one': Recipe(signed_one, (3, 120, 160), FLOAT, None, every),
    'zero-one': Recipe(zero_one, (3, 120, 160), FLOAT, None, every),
    'bytes': Recipe(stretched, (120, 160, 3), BYTE, None, every),
    'bytes-bgr': Recipe(bytes_bgr, (120, 160, 3), BYTE, None, every),
    'grey': Recipe(grey, (1, 120, 160), FLOAT, None, every),
    'torchvision, EXIF ignored, bicubic': Recipe(torchvision_stored, (3, 224, 224), FLOAT, {
        'orientation': 'stored', 'resize': {'rule': 'pil-bicubic', 'fit': 'shorter', 'size': 232},
        'crop': {}, 'values': [{'divide': 255}, {'subtract': [0.485, 0.456, 0.406]},
                               {'divide': [0.229, 0.224, 0.225]}]}, every),
    "Pillow's grey, Lanczos": Recipe(pil_grey, (1, 120, 160), FLOAT, {
        'colours': 'grey-pil', 'resize': {'rule': 'pil-lanczos'}, 'values': [{'divide': 255}]},
        every),
    'alpha over white, box': Recipe(pil_over_white, (120, 160, 3), BYTE, {
        'alpha': {'over': [255, 255, 255]}, 'resize': {'rule': 'pil-box'}}, every),
    'area': Recipe(area_small, (120, 160, 3), BYTE, {'resize': {'rule': 'opencv-area'}}, every),
    'cubic in float32': Recipe(cubic_floats, (3, 120, 160), FLOAT, {
        'resize': {'rule': 'opencv-cubic', 'as': 'float32'}, 'values': [{'divide': 255}]}, every),
    'nearest, EXIF ignored': Recipe(stored_turned, (3, 120, 160), BYTE, {
        'orientation': 'stored', 'resize': {'rule': 'opencv-nearest'}}, every),
    '16 bits kept': Recipe(deep_linear, (3, 120, 160), FLOAT, {
        'depth': 'stored', 'resize': LINEAR, 'values': [{'divide': 65535}]},
        lambda name: '16' in name),
    'grey of 16 bits': Recipe(deep_grey, (1, 120, 160), FLOAT, {
        'depth': 'stored', 'colours': 'grey-opencv', 'resize': LINEAR}, lambda name: '16' in name),
    'letterbox into the corner, BGR': Recipe(text_corner, (96, 320, 3), BYTE, {
        'colours': 'bgr',
        'resize': {**LINEAR, 'fit': 'letterbox', 'placement': 'top-left', 'fill': 0}},
        every),
    'letterbox, never enlarged': Recipe(never_larger, (480, 640, 3), BYTE, {
        'resize': {**LINEAR, 'fit': 'letterbox', 'enlarge': False}}, every),
    'quantised to int8': Recipe(quantised, (120, 160, 3), INT8, {
        'resize': LINEAR, 'values': [{'divide': 127.5}, {'subtract': 1}],
        'quantisation': {'scale': 0.0078125, 'zeroPoint': 3}}, every),
}

# ---- The pictures


def variants(photograph, folder):
    """Files of one photograph, as cameras and programs leave them."""
    name = photograph.stem
    image = Image.open(photograph)
    (folder / photograph.name).write_bytes(photograph.read_bytes())
    colour = image.convert('RGB')
    for orientation in range(1, ALL_ORIENTATIONS + 1):
        exif = Image.Exif()
        exif[0x0112] = orientation
        colour.resize((301, 199)).save(folder / f'{name}-exif{orientation}.jpg', quality=88,
                                       exif=exif)
    colour.save(folder / f'{name}-progressive.jpg', quality=70, progressive=True, subsampling=1)
    colour.save(folder / f'{name}-444.jpg', quality=95, subsampling=0)
    colour.convert('L').save(folder / f'{name}-grey.jpg')
    colour.convert('L').save(folder / f'{name}-grey.png')
    colour.quantize(200).save(folder / f'{name}-palette.png')
    shade = numpy.linspace(0, 255, colour.width * colour.height).reshape(colour.size[::-1])
    alpha = Image.fromarray(shade.astype(numpy.uint8))
    with_alpha = colour.copy()
    with_alpha.putalpha(alpha)
    with_alpha.save(folder / f'{name}-rgba.png')
    Image.merge('LA', (colour.convert('L'), alpha)).save(folder / f'{name}-la.png')
    deep = numpy.array(colour).astype(numpy.uint16) * 257
    deep[::3] ^= 0x5a
    cv2.imwrite(str(folder / f'{name}-rgb16.png'), deep)
    cv2.imwrite(str(folder / f'{name}-grey16.png'), deep[:, :, 1])
    colour.crop((0, 0, 257, 101)).save(folder / f'{name}-odd.png')
    colour.resize((79, 67)).save(folder / f'{name}-small.png')
    colour.resize((448, 448)).save(folder / f'{name}-half.jpg')


def prepared(vorn, pictures, key, recipe, work):
    """The tensors that vorn prepare makes, by the names of the pictures."""
    tensor = {'index': 0, 'name': 'x', 'role': 'data', 'shape': [1, *recipe.shape],
              'typeCode': recipe.type, 'elementBits': 32 if recipe.type == FLOAT else 8}
    model = {'schema': 1, 'model': {'path': 'none'}, 'inputs': [tensor], 'outputs': []}
    (work / 'model.json').write_text(json.dumps(model))
    word = key
    if recipe.json is not None:
        word = str(work / 'recipe.json')
        pathlib.Path(word).write_text(json.dumps({'schema': 1, 'name': key, **recipe.json}))
    made = work / 'made'
    subprocess.run([vorn, 'prepare', '--model-json', work / 'model.json', '--input', pictures,
                    '--recipe', word, '-o', made, '--keep-going', '-q'], check=False)
    kind = {FLOAT: numpy.float32, BYTE: numpy.uint8, INT8: numpy.int8}[recipe.type]
    for one in json.loads((made / 'manifest.json').read_text())['tensors']:
        name = pathlib.Path(one['items'][0]['source']['path']).name
        yield name, numpy.fromfile(made / one['file']['path'], kind).reshape(recipe.shape)


def compare(key, recipe, pictures, tensors):
    """How many are the same, and a line for each that is not."""
    same, others = 0, []
    for picture in sorted(pictures.iterdir()):
        if not recipe.fits(picture.name):
            continue
        wanted = recipe.function(picture)
        given = tensors.get(picture.name)
        if given is None:
            others.append(f'{key}: {picture.name}: nothing is made of it')
        elif wanted.dtype != given.dtype or wanted.shape != given.shape:
            others.append(f'{key}: {picture.name}: {wanted.shape} of {wanted.dtype} are wanted')
        elif wanted.tobytes() == given.tobytes():
            same += 1
        else:
            off = wanted.astype(float) - given.astype(float)
            others.append(f'{key}: {picture.name}: {numpy.count_nonzero(off)} of {off.size} values '
                          f'differ, at most by {numpy.abs(off).max():.3g}')
    return same, others


def main():
    vorn, folder = sys.argv[1:3]
    keys = sys.argv[3:] or list(RECIPES)
    listed = subprocess.run([vorn, 'prepare', '--recipes'], stdout=subprocess.PIPE, text=True,
                            check=True).stdout
    for name in (line.split()[0] for line in listed.splitlines()[1:] if line.strip()):
        if name not in RECIPES:
            print(f'not compared: {name}')
    failed = False
    with tempfile.TemporaryDirectory() as place:
        pictures = pathlib.Path(place) / 'pictures'
        pictures.mkdir()
        for photograph in sorted(pathlib.Path(folder).iterdir()):
            variants(photograph, pictures)
        for key in keys:
            work = pathlib.Path(place) / str(keys.index(key))
            work.mkdir()
            tensors = dict(prepared(vorn, pictures, key, RECIPES[key], work))
            same, others = compare(key, RECIPES[key], pictures, tensors)
            print(f'{key}: {same} of {same + len(others)} the same')
            print(*others, sep='\n', end='\n' if others else '')
            failed = failed or bool(others)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
