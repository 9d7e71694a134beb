"""Reads a FITS file with astropy for the tests, with checksums verified and every warning an error.

    read_fits.py describe FILE
    read_fits.py image FILE HDU
    read_fits.py columns FILE EXTENSION COLUMN…      one after the other, with an empty line behind each
    read_fits.py keyword FILE HDU KEY
"""

import sys
import warnings

from astropy.io import fits


def describe(hdus):
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


def print_numbers(values):
    for value in values.ravel():
        print(repr(float(value)))


def main():
    warnings.simplefilter("error")
    verb, path, *rest = sys.argv[1:]
    with fits.open(path, checksum=True) as hdus:
        if verb == "describe":
            describe(hdus)
        elif verb == "image":
            print_numbers(hdus[int(rest[0])].data)
        elif verb == "columns":
            for name in rest[1:]:
                print_numbers(hdus[rest[0]].data[name])
                print()
        elif verb == "keyword":
            print(hdus[int(rest[0])].header[rest[1]])


main()
