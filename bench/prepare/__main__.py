"""Measures what `vorn prepare` costs beside decoding the pictures alone, on one core.

    PYTHONPATH=bench python3 -m prepare BUILD_FOLDER OUT.json [--quick] [CASE...]

The pictures are the photographs that examples/photographs/run.sh fetched, enlarged, as JPEG. Takes
python3-pil.
"""
import json
import os
import shutil
import sys
from pathlib import Path

from measure import contest, process
from measure.options import parse
from measure.scratch import in_memory, scratch_folder

PHOTOGRAPHS = (Path(__file__).resolve().parents[2] / "build/release/photographs/photographs")
FLOAT32 = 0
PHONE, CAMERA, WEB = 4032, 1920, 640  # pixels of the longer side
# Case: the longer side, the recipe, and the model's input.
CASES = {
    "phone, imagenet-torchvision": (PHONE, "imagenet-torchvision", (224, 224)),
    "phone, imagenet-opencv": (PHONE, "imagenet-opencv", (224, 224)),
    "phone, detector-letterbox": (PHONE, "detector-letterbox", (640, 640)),
    "camera, imagenet-torchvision": (CAMERA, "imagenet-torchvision", (224, 224)),
    "camera, imagenet-opencv": (CAMERA, "imagenet-opencv", (224, 224)),
    "camera, detector-letterbox": (CAMERA, "detector-letterbox", (640, 640)),
    "web, imagenet-torchvision": (WEB, "imagenet-torchvision", (224, 224)),
    "web, imagenet-opencv": (WEB, "imagenet-opencv", (224, 224)),
    "web, detector-letterbox": (WEB, "detector-letterbox", (640, 640)),
}


def write_pictures(folder, longer, count):
    """As many JPEGs, no two of them of one size."""
    from PIL import Image

    if not PHOTOGRAPHS.is_dir():
        sys.exit(f"bench: {PHOTOGRAPHS} is missing; examples/photographs/run.sh fetches it.")
    folder.mkdir()
    photographs = [Image.open(path).convert("RGB") for path in sorted(PHOTOGRAPHS.iterdir())]
    for number in range(count):
        image = photographs[number % len(photographs)]
        scale = (longer - number % 40) / max(image.size)
        size = [max(1, round(side * scale)) for side in image.size]
        image.resize(size, Image.BICUBIC).save(folder / f"{number:04}.jpg", quality=90)
    return sorted(folder.iterdir())


def describe_model(path, size):
    """What vorn inspect would tell of a model with one input of that size."""
    tensor = {"index": 0, "name": "x", "role": "data", "shape": [1, 3, *size],
              "typeCode": FLOAT32, "elementBits": 32}
    path.write_text(json.dumps({"schema": 1, "model": {"path": "none"}, "inputs": [tensor],
                                "outputs": []}))


def measure(build, name, quick):
    longer, recipe, size = CASES[name]
    with scratch_folder(in_memory()) as scratch:
        count = 20 if quick else 60 if longer == PHONE else 200
        pictures = write_pictures(scratch / "pictures", longer, count)
        describe_model(scratch / "model.json", size)
        made = scratch / "made"

        def ours():
            shutil.rmtree(made, ignore_errors=True)
            return process.run(
                [build.folder / "vorn-prepare", "--model-json", scratch / "model.json", "--input",
                 scratch / "pictures", "--recipe", recipe, "-o", made, "--jobs", "1", "-q"],
                dict(os.environ))

        decoder = build.folder / "bench/prepare/floor_decode"

        def decode():
            return process.run([decoder, *pictures], {})

        def decode_and_write():
            shutil.rmtree(made, ignore_errors=True)
            made.mkdir()
            return process.run([decoder, "--write", made, 3 * 4 * size[0] * size[1], *pictures], {})

        samples = contest.take_turns([ours, decode, decode_and_write], 3 if quick else 7)
    results = [contest.result("prepare", name, samples[0], samples[1], "ms", 1e3),
               contest.result("prepare-written", name, samples[0], samples[2], "ms", 1e3)]
    shares = [f"{1 / result['ratio']:.2f} ({1 / result['cpuRatio']:.2f} by processor times)"
              for result in results]
    print(f"bench: prepare, {name}: {shares[0]} of the decoder's speed, {shares[1]} of decoding "
          f"and writing as many bytes", flush=True)
    return results


def main():
    options = parse("prepare", "Measures vorn prepare.", "case", CASES)
    results = [result for name in options.chosen
               for result in measure(options.build, name, options.quick)]
    options.out.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
