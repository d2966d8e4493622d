// Sorting of row blocks by a key, carrying companion columns.
//
// Every sort here is STABLE: rows with equal keys keep their input order. The survival
// preparation depends on it: it sorts one set of columns by the group label and then another
// set by the same label, and only a stable sort gives both the same permutation.
//
// Order of keys: ascending numeric order, -inf and the missing-value marker first, NaN last
// (all NaNs equal). Cost: O(m log m) for a block of m rows plus O(m) per carried column.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "velkor/containers.h"

// The permutation that sorts key[0..n-1] stably: order[r] is the input index of the row that
// goes to position r.
std::vector<std::uint32_t> SortOrder(const double* key, std::size_t n);

// Sort rows first..last (1-based, inclusive; clipped to the rows of `key`) of the first column of
// `key` ascending. Every matrix in `carried` has the same rows permuted in step (all of its
// columns). With moveKey = false the key column itself is left as it was.
// Blocks that are empty after clipping are left alone.
void SortQ(matrix<double>* key, int first, int last, std::initializer_list<matrix<double>*> carried,
           bool moveKey = true);

// Same, carrying integer columns as well.
void SortQ(matrix<double>* key, int first, int last, std::initializer_list<matrix<double>*> carried,
           std::initializer_list<matrix<int>*> carriedInt, bool moveKey);

// Sort the first n elements of a vector ascending (stable; NaN last).
void SortQVector(double* v, std::size_t n);
void SortQVector(matrix<double>* v, int n);

// Apply a permutation (as returned by SortOrder) to rows offset .. offset+order.size()-1 of every
// column of m.
template <class T>
void ApplyRowPermutation(matrix<T>* m, std::size_t offset, const std::vector<std::uint32_t>& order);
// The same on several matrices (one scratch buffer for all).
void ApplyRowPermutation(std::initializer_list<matrix<double>*> columns, std::size_t offset,
                         const std::vector<std::uint32_t>& order);
