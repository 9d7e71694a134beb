#pragma once

/// @file
/// Exponential, logarithm and the normal distribution from sums, products and quotients alone, so that their bits are
/// the same on every processor. The C library's differ in the last one, for it chooses among several forms.

namespace quen::detector {

/// e^x to a few last bits, for −700 ≤ x ≤ 700.
double Exp(double x);

/// ln x to a few last bits, for normal x > 0.
double Log(double x);

/// ln(1 + x) − x to a few last bits, for x > −1.
double LogOnePlusLessX(double x);

/// The probability that a standard normal deviate is below −|w|, to 10⁻¹² of itself, for |w| < 37.
double NormalTail(double w);

}  // namespace quen::detector
