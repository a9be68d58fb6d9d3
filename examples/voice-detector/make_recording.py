#!/usr/bin/env python3
"""Makes a recording of speech and silence in turns, as the inputs of a voice detector.

    make_recording.py FOLDER

Needs espeak-ng. Writes into FOLDER, which has to exist:

    frames.bin  float32 [2 x frames, 512]: the recording at 16 kHz, twice, cut into frames
    flags.bin   uint8 [2 x frames]: 0 at the first frame of either, 1 elsewhere
    list.txt    both files, for vorn-run -i
    speech.txt  the stretches of speech, a line each: first frame, frame behind the last
"""

import array
import io
import subprocess
import sys
import wave
from pathlib import Path

RATE = 16000
FRAME = 512
SILENCE = [0.0] * (RATE * 3 // 2)
SENTENCES = [
    "Good morning, this is the first sentence of the recording.",
    "The weather will be fine tomorrow afternoon.",
    "Please turn left at the second bridge, and then keep walking.",
]


def speak(sentence):
    """The sentence at 16 kHz, in [-1, 1], without the silence at either end."""
    raw = subprocess.run(["espeak-ng", "-v", "en", "--stdout", sentence], check=True,
                         capture_output=True).stdout
    rate = wave.open(io.BytesIO(raw)).getframerate()
    samples = array.array("h", raw[44:len(raw) - len(raw) % 2])  # its header gives no length
    loud = [i for i, value in enumerate(samples) if abs(value) > 300]
    samples = samples[loud[0]:loud[-1]]
    resampled = []
    for i in range(int((len(samples) - 1) * RATE / rate)):
        at = i * rate / RATE
        left = int(at)
        share = at - left
        resampled.append((samples[left] * (1 - share) + samples[left + 1] * share) / 32768)
    return resampled


def main():
    folder = Path(sys.argv[1])
    recording = list(SILENCE)
    stretches = []
    for sentence in SENTENCES:
        begin = len(recording)
        recording += speak(sentence)
        stretches.append((begin // FRAME, -(-len(recording) // FRAME)))
        recording += SILENCE
    frames = len(recording) // FRAME
    once = array.array("f", recording[:frames * FRAME]).tobytes()
    (folder / "frames.bin").write_bytes(once + once)
    (folder / "flags.bin").write_bytes((bytes([0]) + bytes([1]) * (frames - 1)) * 2)
    (folder / "list.txt").write_text("frames.bin\nflags.bin\n")
    (folder / "speech.txt").write_text("".join(f"{a} {b}\n" for a, b in stretches))
    print(f"{frames} frames, speech in {stretches}")


if __name__ == "__main__":
    main()
