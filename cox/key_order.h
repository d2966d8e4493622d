// Stable ascending order of a column of continuous doubles (the linear predictors of the
// concordance index). Keys with many exact ties (times) sort faster with the companion SortOrder,
// which skips the radix digits all keys share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velkor::cox {

// The stable ascending order of key[0..n) (order[r] = index of the r-th smallest key; NaN after
// every number, -0 equal to 0): the same permutation as the companion SortOrder, found with
// less data movement for large n. Keys in order already give the identity in one pass.
//
// How: each row is packed into one 64-bit word, the top 32 bits of the key's order-preserving
// integer image above the row index, and the words are sorted by LSD radix on those 32 bits
// (three passes over 8 bytes a row, where sorting the whole 64-bit image with its index takes
// six passes over 16). Rows whose top halves are equal stay in index order (the radix passes
// are stable); each such run is then checked against the full keys and, where they are out of
// order, sorted by them stably. Runs are short for continuous data (the top half holds the sign,
// exponent and 20 bits of mantissa) and are whole runs of ties for tied data, which are already
// in order. Cost O(n) plus O(r log r) per run of r rows with equal top halves.
std::vector<std::uint32_t> KeyOrder(const double* key, std::size_t n);

}  // namespace velkor::cox
