#!/usr/bin/env python3
"""make_outputs.py BUILD FACES VOICE OUT: outputs of the examples' networks as arrays.

They are what cause_bench draws from. BUILD holds vorn-run and the host runtime; FACES and VOICE are
what examples/face-finder/run.sh and examples/voice-detector/run.sh left in their build folder.
float16, int8 and uint8 come from the runtime itself: a cast or a quantisation is put behind the
network, and its output is what is dumped. No library beyond Python's own.
"""
import array
import os
import struct
import subprocess
import sys
import tempfile

FLOAT16, INT8, UINT8 = 10, 3, 2  # element types of ONNX
HERE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def varint(value):
    text = b""
    while value > 127:
        text += bytes([value & 127 | 128])
        value >>= 7
    return text + bytes([value])


def field(number, value):
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    value = value.encode() if isinstance(value, str) else value
    return varint(number << 3 | 2) + varint(len(value)) + value


def node(kind, inputs, output, attributes=b""):
    words = b"".join(field(1, i) for i in inputs)
    return field(1, words + field(2, output) + field(4, kind) + attributes)


def scalar(name, kind, raw):
    return field(5, field(2, kind) + field(8, name) + field(9, raw))


def output(name, kind, shape):
    dims = b"".join(field(1, field(1, size)) for size in shape)
    return field(12, field(1, name) + field(2, field(1, field(1, kind) + field(2, dims))))


def behind(model, tensor, kind, shape, step=None, zero=0):
    """The model with one more output, "typed": appended bytes become part of the same message."""
    if kind == FLOAT16:
        to = field(5, field(1, "to") + field(3, FLOAT16) + field(20, 2))
        graph = node("Cast", [tensor], "typed", to)
    else:
        graph = node("QuantizeLinear", [tensor, "step", "zero"], "typed")
        graph += scalar("step", 1, struct.pack("<f", step))
        graph += scalar("zero", kind, struct.pack("<b" if kind == INT8 else "<B", zero))
    with open(model, "rb") as file:
        return file.read() + field(7, graph + output("typed", kind, shape))


def run(build, model, files, folder):
    """The dumps of all outputs by name, a list of floats a sample."""
    listed = os.path.join(folder, "list.txt")
    with open(listed, "w") as file:
        for number, path in enumerate(files):  # a list names files beside it
            os.symlink(path, f"{folder}/{number}.bin")
            file.write(f"{number}.bin\n")
    settings = os.path.join(folder, "host.json")
    with open(settings, "w") as file:
        file.write("{}")
    out = os.path.join(folder, "out")
    os.mkdir(out)
    subprocess.run([build + "/vorn-run", "-m", model, "-j", settings, "-i", listed, "-o", out],
                   env={**os.environ, "LD_LIBRARY_PATH": build}, check=True,
                   stdout=subprocess.DEVNULL)
    return dumps(out)


def dumps(out):
    found = {}
    for sample in sorted(os.listdir(out), key=int):
        for name in os.listdir(f"{out}/{sample}"):
            if name.endswith(".bin"):
                with open(f"{out}/{sample}/{name}", "rb") as file:
                    values = array.array("f", file.read())
                found.setdefault(name.split(".")[0], []).append(values)
    return found


def write(path, descr, shape, samples):
    code = {"<f4": "f", "<f2": "e", "|i1": "b", "|u1": "B"}[descr]
    values = [v for sample in samples for v in sample]
    if code in "bB":
        values = [int(v) for v in values]
    dims = ", ".join(str(size) for size in [len(samples)] + shape)
    head = f"{{'descr': '{descr}', 'fortran_order': False, 'shape': ({dims}), }}"
    head += " " * (-(len(head) + 11) % 64) + "\n"
    with open(path, "wb") as file:
        file.write(b"\x93NUMPY\x01\0" + struct.pack("<H", len(head)) + head.encode())
        file.write(struct.pack(f"<{len(values)}{code}", *values))


def cropped(samples, columns, first, count):
    """A square out of each picture."""
    middle = range(first, first + count)
    return [[s[r * columns + c] for r in middle for c in middle]
            for s in samples]


def typed(build, model, files, tensor, kind, shape, step=None, zero=0):
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "model.onnx")
        with open(path, "wb") as file:
            file.write(behind(model, tensor, kind, shape, step, zero))
        return run(build, path, files, folder)


def main():
    build, faces, voice, out = (os.path.abspath(path) for path in sys.argv[1:])
    os.makedirs(out, exist_ok=True)
    scenes = [f"{HERE}/examples/digit-finder/scenes/{i:02}.bin" for i in range(12)]
    proposals = HERE + "/examples/digit-finder/proposals.onnx"
    with tempfile.TemporaryDirectory() as folder:
        found = run(build, proposals, scenes, folder)
    write(out + "/objectness.npy", "<f4", [1, 24, 24], cropped(found["objectness"], 89, 30, 24))

    names = ("astronaut", "mirrored", "cat", "coffee", "rocket")
    pictures = [f"{faces}/{name}.bin" for name in names]
    model = faces + "/package/ONNX/face_detection_front_128x128_barracuda.onnx"
    part = slice(0, 128 * 16)
    found = typed(build, model, pictures, "Identity_2:0", FLOAT16, [1, 512, 16])
    write(out + "/boxes_float16.npy", "<f2", [128, 16], [s[part] for s in found["typed"]])
    write(out + "/box_scores.npy", "<f4", [512], found["Identity:0"])
    found = typed(build, model, pictures, "Identity_2:0", INT8, [1, 512, 16], 0.4)
    write(out + "/boxes_int8.npy", "|i1", [128, 16], [s[part] for s in found["typed"]])

    found = typed(build, model, pictures, "Identity:0", UINT8, [1, 512, 1], 0.04, 170)
    write(out + "/box_scores_uint8.npy", "|u1", [512], found["typed"])

    speech = dumps(voice + "/out")["output"][0][:445]
    write(out + "/speech.npy", "<f4", [89], [speech[i:i + 89] for i in range(0, 445, 89)])


if __name__ == "__main__":
    main()
