#pragma once

#include <string>
#include <vector>

/// @file
/// FITS files seen through other eyes than CFITSIO's calls: the fitsverify program and astropy.

namespace quen::testing {

/// What fitsverify says of a file, "verification OK" lines excepted: empty when it has neither a warning nor an error.
std::string ComplaintsOfFitsverify(const std::string& path);

/// One line per HDU as astropy reads it, checksums verified: "0 image '' 16 840x816", "1 table 'rois' 1089 x_low:I …"
/// (formats as astropy names them). Axes are in FITS order. A warning or a failure is in the text.
std::string DescribedByAstropy(const std::string& path);

/// Values as astropy reads them, fastest axis first: of an image HDU, of a column of a table HDU, or of several at
/// once, which takes no longer, as most of the time goes into starting astropy.
std::vector<double> ImageReadByAstropy(const std::string& path, int hdu = 0);
std::vector<double> ColumnReadByAstropy(const std::string& path, const std::string& extension,
                                        const std::string& column);
std::vector<std::vector<double>> ColumnsReadByAstropy(const std::string& path, const std::string& extension,
                                                      const std::vector<std::string>& columns);

/// A table of regions.
struct RegionColumns {
  std::vector<double> x_low, x_up, x_ref, y_low, y_up, y_ref;
};
RegionColumns RegionsReadByAstropy(const std::string& path);

/// The value of a header keyword, as text.
std::string KeywordReadByAstropy(const std::string& path, int hdu, const std::string& key);

}  // namespace quen::testing
