#!/usr/bin/env python3
"""Writes fuzz/corpus: a few small inputs for every fuzzer to start from.

All images are drawn here and written by the usual tools (convert, cjpeg, heif-enc). The result is
committed; run this again only when a fuzzer needs other inputs.
"""

import pathlib
import shutil
import subprocess
import tempfile

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"
WIDTH, HEIGHT = 24, 17

# File name: the command, which reads IN and writes OUT.
ALPHA = "( +clone -colorspace gray -auto-level ) -compose CopyOpacity -composite"
IMAGES = {
    "jpeg/420": "cjpeg -quality 60 -sample 2x2 -outfile OUT IN",
    "jpeg/422-restart": "cjpeg -quality 60 -sample 2x1 -restart 1B -outfile OUT IN",
    "jpeg/gray": "cjpeg -quality 60 -grayscale -outfile OUT IN",
    "jpeg/progressive": "cjpeg -quality 60 -progressive -outfile OUT IN",
    "jpeg/arithmetic": "cjpeg -quality 60 -arithmetic -outfile OUT IN",
    "jpeg/cmyk": "convert IN -colorspace CMYK -quality 60 jpeg:OUT",
    "bmp/24-bit": "convert IN -type TrueColor BMP3:OUT",
    "bmp/palette": "convert IN -colors 16 BMP3:OUT",
    "bmp/newer-header": "convert IN BMP:OUT",
    "pnm/ppm": "convert IN -depth 8 ppm:OUT",
    "pnm/pgm": "convert IN -colorspace gray -depth 8 pgm:OUT",
    "pnm/ppm-16-bit": "convert IN -evaluate multiply 0.9 -depth 16 ppm:OUT",
    "pnm/plain": "convert IN -resize 6x5! -compress none -depth 8 ppm:OUT",
    "png/rgb": "convert IN PNG24:OUT",
    "png/interlaced": "convert IN -interlace PNG PNG24:OUT",
    "png/palette": "convert IN -colors 12 PNG8:OUT",
    "png/alpha": f"convert IN {ALPHA} PNG32:OUT",
    "png/16-bit": "convert IN -evaluate multiply 0.9 PNG48:OUT",
    "png/background": f"convert IN {ALPHA} -background red -define png:include-chunk=bKGD PNG32:OUT",
    "png/black-and-white": "convert IN -monochrome png:OUT",
    "tiff/plain": "convert IN -compress None tiff:OUT",
    "tiff/lzw": "convert IN -compress LZW tiff:OUT",
    "tiff/zip-16-bit": "convert IN -evaluate multiply 0.9 -depth 16 -compress Zip tiff:OUT",
    "tiff/jpeg": "convert IN -compress JPEG tiff:OUT",
    "tiff/palette": "convert IN -colors 16 -type Palette tiff:OUT",
    "tiff/tiled": "convert IN -define tiff:tile-geometry=16x16 tiff:OUT",
    "tiff/fax": "convert IN -monochrome -compress Group4 tiff:OUT",
    "tiff/rotated": "convert IN -orient RightTop tiff:OUT",
    "webp/lossy": "convert IN -quality 60 webp:OUT",
    "webp/lossless": "convert IN -define webp:lossless=true webp:OUT",
    "webp/alpha": f"convert IN {ALPHA} -quality 60 webp:OUT",
    "gif/plain": "convert IN -colors 32 gif:OUT",
    "gif/interlaced": "convert IN -colors 32 -interlace GIF gif:OUT",
    "gif/two-frames": "convert IN ( +clone -flip ) -colors 16 gif:OUT",
    "gif/transparent": "convert IN -colors 16 -fuzz 20% -transparent red gif:OUT",
    "heif/heic": "heif-enc -q 40 -o OUT.heic IN",
    "heif/avif": "heif-enc -A -q 40 -o OUT.avif IN",
}

OPTIONS = (
    "-define jpeg:size={0}x{0} -thumbnail {0}x{0}>{1} -quality 90 +profile !icc,* -flatten"
    " -auto-orient -rotate 270 -flop -unsharp 0.5x0.5+1.25+0 -colorspace sRGB"
)
COMMANDS = {
    "one": "in.jpg " + OPTIONS.format(640, "") + " out.jpg",
    "short": "in.png[0] -thumbnail 5x7> -quality 1 out.jpeg",
    "three": "-define registry:temporary-path=/tmp/100%% -limit thread 1 in.jpg -profile p.icc"
    f" ( -clone 0 {OPTIONS.format(1280, '^')} -write 1.jpg ) -delete 0"
    f" ( +clone {OPTIONS.format(320, '')} -write 2.jpg +delete )"
    f" {OPTIONS.format(120, '')} 3.jpg",
    "unknown-option": "in.jpg -thumbnail 5x7> -negate out.jpg",
    "unsharp": "in.jpg -thumbnail 5x7> -quality 9 -unsharp 0x1.5 out.jpg",
}


def draw_image():
    """A soft gradient with a red disc and a white bar."""
    pixels = bytearray()
    for y in range(HEIGHT):
        for x in range(WIDTH):
            pixel = (8 * x, 12 * y, 200 - 6 * x)
            if (x - 8) ** 2 + (y - 8) ** 2 < 20:
                pixel = (250, 20, 20)
            if 18 <= x <= 20:
                pixel = (255, 255, 255)
            pixels += bytes(pixel)
    return b"P6\n%d %d\n255\n" % (WIDTH, HEIGHT) + bytes(pixels)


def write_images(scratch):
    plain = scratch / "plain.ppm"
    plain.write_bytes(draw_image())
    png = scratch / "plain.png"
    subprocess.run(["convert", plain, png], check=True)
    for name, command in IMAGES.items():
        target = CORPUS / name
        target.parent.mkdir(parents=True, exist_ok=True)
        tool, *words = command.split()
        source = png if tool == "heif-enc" else plain
        words = [word.replace("OUT", str(scratch / "made")) for word in words]
        words = [str(source) if word == "IN" else word for word in words]
        subprocess.run([tool, *words], check=True)
        made = next(path for path in scratch.iterdir() if path.name.startswith("made"))
        made.rename(target)


def write_others():
    for name, command in COMMANDS.items():
        target = CORPUS / "arguments" / name
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text("\n".join(command.split()))
    for fuzzer in ("resize", "unsharp"):
        (CORPUS / fuzzer).mkdir(parents=True, exist_ok=True)
        for number in range(4):
            scrambled = bytes((i * i * (number + 3) + 31 * i) % 256 for i in range(20 + 40 * number))
            (CORPUS / fuzzer / f"pattern-{number}").write_bytes(scrambled)


def main():
    shutil.rmtree(CORPUS, ignore_errors=True)
    with tempfile.TemporaryDirectory() as scratch:
        write_images(pathlib.Path(scratch))
    write_others()


if __name__ == "__main__":
    main()
