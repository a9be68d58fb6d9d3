"""What is really to be seen on the photographs: lines of text and their boxes (left, top, right,
bottom), in pixels, measured in the photographs by eye."""

SEEN = {
    "grace_hopper.jpg": [
        ("COMO HOPPER", (111, 496, 160, 506)),
    ],
    "page.png": [
        ("Region-based segmentation", (6, 13, 293, 34)),
        ("Let us first determine markers of the coins and the", (6, 49, 376, 63)),
        ("background. These markers are pixels that we can label", (6, 66, 376, 82)),
        ("unambiguously as either object or background. Here,", (6, 84, 376, 101)),
        ("the markers are found at the two extreme parts of the", (6, 100, 376, 119)),
        ("histogram of grey values:", (7, 117, 171, 136)),
        (">>> markers = np.zeros_like(coins)", (18, 170, 241, 190)),
    ],
    "rocket.jpg": [],
}
