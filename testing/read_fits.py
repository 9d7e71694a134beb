"""Reads FITS files with astropy for the tests, with checksums verified and every warning an error."""

import sys
import warnings

import numpy as np
from astropy.io import fits


def opened(path):
    warnings.simplefilter("error")
    return fits.open(path, checksum=True, memmap=False)


def describe(path):
    with opened(path) as hdus:
        for number, hdu in enumerate(hdus):
            if "CHECKSUM" not in hdu.header or "DATASUM" not in hdu.header:
                sys.exit(f"HDU {number} has no checksums")
            if isinstance(hdu, fits.BinTableHDU):
                columns = " ".join(f"{c.name}:{c.format}" for c in hdu.columns)
                print(f"{number} table '{hdu.name if hdu.header.get('EXTNAME') is None else hdu.header['EXTNAME']}' "
                      f"{len(hdu.data) if hdu.data is not None else 0} {columns}")
            else:
                axes = "x".join(str(hdu.header[f"NAXIS{i + 1}"]) for i in range(hdu.header["NAXIS"]))
                print(f"{number} image '{hdu.header.get('EXTNAME', '')}' {hdu.header['BITPIX']} {axes}".rstrip())


def write_numbers(values):
    """Their number in a line, and they as doubles of this machine."""
    values = np.ascontiguousarray(values, dtype=float)
    sys.stdout.buffer.write(b"%d\n" % values.size + values.tobytes())


def image(path, hdu):
    with opened(path) as hdus:
        write_numbers(hdus[hdu].data)


def columns(path, extension, names):
    with opened(path) as hdus:
        for name in names:
            write_numbers(hdus[extension].data[name])


def keyword(path, hdu, key):
    with opened(path) as hdus:
        print(hdus[hdu].header[key])
