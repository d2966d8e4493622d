// Dense containers of the library: matrix<T>, cST_MVect<T> and matrix3D<T>.
//
// Every container has a spare element that absorbs out-of-range access: an out-of-range read
// returns it (by reference) and every indexed store (set, vbset, setElement) writes the value
// to the element when the index is in range and to the spare element in every case. Callers
// rely on this instead of bounds checks: an out-of-range read yields the last value stored.
//
// Instantiations built into the library: matrix<double|int|short|std::u16string>,
// cST_MVect<double|int|std::u16string>, matrix3D<cST_MVect<double|int|std::u16string>>,
// matrix3D<matrix<double>>. The matrix3D members are exported under their own names.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "velkor/export.h"
#include "velkor/oleauto.h"

// Initial value of the spare element of each instantiation. For matrix<double> it is -1.0; the
// integer instantiations use -1 likewise (an out-of-range read looks like "no index"), and the
// string instantiation the empty string.
template <class T>
struct VELKOR_VISIBLE SpareInit {
  static T value() { return T(-1); }
};
template <>
struct SpareInit<std::u16string> {
  static std::u16string value() { return std::u16string(); }
};

// ---------------------------------------------------------------------------------------------
// matrix<T>: owning dense column-major matrix, 1-based accessors, element (i, j) at
// data[(j-1) * rows + (i-1)]. A vector is a matrix with one column.
//
// Auxiliary vectors (optional, owned by the matrix and freed by its destructor whatever the
// owns-data flag says; only the element buffer follows that flag):
//   colLower/colUpper  a pair of per-column vectors (present together, pairFlag = 1): lower and
//                      upper bounds of each column, used by analyses that clip or scale columns;
//   aux1/aux2          two further slots for scratch buffers of analyses; not copied;
//   rowWeights         per-row values (rows doubles), e.g. case weights travelling with rows;
//   colScale           per-column values (cols doubles), e.g. centring means of covariates;
//   colCodes           per-column integer codes (cols ints), e.g. variable numbers of columns.
// ---------------------------------------------------------------------------------------------
template <class T>
class VELKOR_VISIBLE matrix {
 public:
  T spare;                     // absorbs out-of-range access (see above)
  double fill = 0.0;           // value of the (rows, cols) constructor
  bool ownsData = true;        // free the element buffer in the destructor
  double* colLower = nullptr;  // per-column pair, present when pairFlag == 1
  double* colUpper = nullptr;
  void* aux1 = nullptr;  // freed (operator delete[]) by the destructor when set
  void* aux2 = nullptr;
  double* rowWeights = nullptr;      // rows doubles
  double* colScale = nullptr;        // cols doubles
  std::int32_t* colCodes = nullptr;  // cols ints
  std::int32_t pairFlag = 0;
  std::int32_t reserved = 0;
  T* data = nullptr;
  std::uint32_t rows = 0;
  std::uint32_t cols = 0;
  std::uint64_t count = 0;
  void* reservedPtr = nullptr;

  // rows x cols over `src`: adopt == 0 copies count elements from src (src may be null only
  // when count is 0); adopt != 0 takes src as the element buffer without copying (the caller
  // keeps ownership and sees every write).
  matrix(std::uint32_t r, std::uint32_t c, T* src, int adopt) : spare(SpareInit<T>::value()) {
    set_shape(r, c);
    if (adopt != 0) {
      data = src;
      ownsData = false;
    } else {
      allocate();
      if (src != nullptr) {
        for (std::uint64_t k = 0; k < count; ++k) data[k] = src[k];
      }
    }
  }

  // rows x cols filled with the fill value (0).
  matrix(std::uint32_t r, std::uint32_t c) : spare(SpareInit<T>::value()) {
    set_shape(r, c);
    allocate();
    for (std::uint64_t k = 0; k < count; ++k) data[k] = static_cast<T>(fill_value());
  }

  // Copies the element buffer and the per-row, per-column and code vectors when present, and
  // the per-column pair when the pair flag is set. aux1/aux2 are not copied.
  matrix(const matrix& o) : spare(SpareInit<T>::value()) {
    set_shape(o.rows, o.cols);
    fill = o.fill;
    allocate();
    for (std::uint64_t k = 0; k < count; ++k) data[k] = o.data[k];
    if (o.rowWeights) rowWeights = clone(o.rowWeights, rows);
    if (o.colScale) colScale = clone(o.colScale, cols);
    if (o.colCodes) colCodes = clone(o.colCodes, cols);
    if (o.pairFlag == 1) {
      pairFlag = 1;
      colLower = clone(o.colLower, cols);
      colUpper = clone(o.colUpper, cols);
    }
  }

  matrix& operator=(const matrix&) = delete;

  virtual ~matrix() {
    if (ownsData) delete[] data;
    delete[] colLower;
    delete[] colUpper;
    delete[] static_cast<unsigned char*>(aux1);
    delete[] static_cast<unsigned char*>(aux2);
    delete[] rowWeights;
    delete[] colScale;
    delete[] colCodes;
  }

  // Element by 1-based linear index k: data[k-1] if k-1 < count (unsigned comparison, so k = 0
  // is out of range), else the spare element.
  virtual T& operator()(int k) { return at_linear(k); }
  // Same behaviour as above (the second entry of the pair).
  virtual T& el(int k) { return at_linear(k); }
  // Element by 1-based (i, j): data[(j-1)*rows + (i-1)] if i-1 < rows and j-1 < cols compared
  // as signed integers, else the spare element. The signed test lets i = 0 (or j = 0) through,
  // which addresses the neighbouring element in the column-major buffer (the last element of
  // the previous column); an address that would fall outside the buffer altogether gets the
  // spare element instead, so no access ever leaves the buffer.
  virtual T& operator()(int i, int j) { return at_ij(i, j); }
  // Same behaviour as above (the second entry of the pair).
  virtual T& el(int i, int j) { return at_ij(i, j); }

  // Indexed stores: write the element when in range, and the spare element in every case.
  void set(int k, const T& v) {
    T& slot = at_linear(k);
    slot = v;
    spare = v;
  }
  void set(int i, int j, const T& v) {
    T& slot = at_ij(i, j);
    slot = v;
    spare = v;
  }

  // 0-based inline read used inside workers: element i of an n x 1 matrix when i < rows and
  // cols >= 1, otherwise the spare element.
  T& at0(std::uint64_t i) { return (i < rows && cols >= 1) ? data[i] : spare; }
  // 0-based (i, j) with full bounds checks; the spare element when out of range.
  T& at0(std::uint64_t i, std::uint64_t j) {
    return (i < rows && j < cols) ? data[j * rows + i] : spare;
  }

  std::uint32_t nrows() const { return rows; }
  std::uint32_t ncols() const { return cols; }

  // Allocate the per-column pair (zero-filled) and set the pair flag.
  void make_column_pair() {
    if (pairFlag == 1) return;
    colLower = new double[cols]();
    colUpper = new double[cols]();
    pairFlag = 1;
  }

 private:
  static double fill_value() { return 0.0; }

  void set_shape(std::uint32_t r, std::uint32_t c) {
    rows = r;
    cols = c;
    count = static_cast<std::uint64_t>(r) * c;
  }
  void allocate() {
    if constexpr (std::is_arithmetic_v<T>) {
      data = new T[count == 0 ? 1 : count];
    } else {
      data = new T[count == 0 ? 1 : count]();
    }
    ownsData = true;
  }
  template <class U>
  static U* clone(const U* src, std::uint64_t n) {
    U* p = new U[n == 0 ? 1 : n];
    for (std::uint64_t k = 0; k < n; ++k) p[k] = src[k];
    return p;
  }
  T& at_linear(int k) {
    const std::uint32_t idx = static_cast<std::uint32_t>(k) - 1u;  // unsigned: k = 0 wraps
    return (idx < count && data) ? data[idx] : spare;
  }
  T& at_ij(int i, int j) {
    const std::int64_t ri = std::int64_t{i} - 1;
    const std::int64_t cj = std::int64_t{j} - 1;
    if (ri < static_cast<std::int64_t>(rows) && cj < static_cast<std::int64_t>(cols)) {
      const std::int64_t off = cj * static_cast<std::int64_t>(rows) + ri;
      if (off >= 0 && static_cast<std::uint64_t>(off) < count && data) return data[off];
    }
    return spare;
  }
};

// String matrices are filled with empty strings by the (rows, cols) constructor.
template <>
inline matrix<std::u16string>::matrix(std::uint32_t r, std::uint32_t c)
    : spare(SpareInit<std::u16string>::value()) {
  set_shape(r, c);
  allocate();
}

// ---------------------------------------------------------------------------------------------
// cST_MVect<T>: vector of the object interface. Virtual table, spare element, element buffer,
// unsigned 32-bit count. Same spare-element rule as matrix<T>; 0-based and 1-based access.
// Held through std::shared_ptr by the object-interface types.
// ---------------------------------------------------------------------------------------------
template <class T>
class VELKOR_VISIBLE cST_MVect {
 public:
  T spare;
  T* data = nullptr;
  std::uint32_t count = 0;

  cST_MVect() : spare(SpareInit<T>::value()) {}
  explicit cST_MVect(std::uint32_t n, const T& init = T()) : spare(SpareInit<T>::value()) {
    resize(n, init);
  }
  cST_MVect(const T* src, std::uint32_t n) : spare(SpareInit<T>::value()) {
    resize(n, T());
    for (std::uint32_t i = 0; i < n; ++i) data[i] = src[i];
  }
  cST_MVect(const cST_MVect& o) : spare(o.spare) {
    resize(o.count, T());
    for (std::uint32_t i = 0; i < count; ++i) data[i] = o.data[i];
  }
  cST_MVect& operator=(const cST_MVect& o) {
    if (this != &o) {
      cST_MVect tmp(o);
      swap(tmp);
    }
    return *this;
  }
  virtual ~cST_MVect() { delete[] data; }

  void swap(cST_MVect& o) noexcept {
    std::swap(spare, o.spare);
    std::swap(data, o.data);
    std::swap(count, o.count);
  }

  // Replace the contents by n copies of init.
  void resize(std::uint32_t n, const T& init) {
    T* fresh = new T[n == 0 ? 1 : n];
    for (std::uint32_t i = 0; i < n; ++i) fresh[i] = init;
    delete[] data;
    data = fresh;
    count = n;
  }

  std::uint32_t size() const { return count; }

  // 0-based element, the spare element when i >= count.
  virtual T& operator[](std::uint32_t i) { return i < count ? data[i] : spare; }
  // 1-based element (unsigned comparison of i-1, so 0 is out of range).
  T& vb(int i) {
    const std::uint32_t idx = static_cast<std::uint32_t>(i) - 1u;
    return idx < count ? data[idx] : spare;
  }
  // Indexed stores with write-through into the spare element.
  void setElement(std::uint32_t i, const T& v) {
    if (i < count) data[i] = v;
    spare = v;
  }
  void vbset(int i, const T& v) { setElement(static_cast<std::uint32_t>(i) - 1u, v); }
};

// A column of a matrix3D built from an OLE record array: its name, a caller tag, and a list of
// entries whose first entry carries the values.
template <class T>
struct VELKOR_VISIBLE cST_Column {
  std::u16string name;
  std::int32_t role = 0;
  std::vector<std::shared_ptr<cST_MVect<T>>> entries;
};

// Slice type of each matrix3D instantiation.
template <class T>
struct Matrix3DSlice;
template <class T>
struct Matrix3DSlice<cST_MVect<T>> {
  using type = cST_Column<T>;
  using value = T;
};
template <>
struct Matrix3DSlice<matrix<double>> {
  using type = matrix<double>;
  using value = double;
};

// Layout of one record of the one-dimensional SAFEARRAY read by the cST_MVect constructors:
// 40 bytes, which is also the layout of this user-defined type of a 64-bit spreadsheet macro:
//   Type VelkorColumn: Values As Variant: Name As String: Role As Long: Reserved As Long
// `values` holds a one-dimensional array (VT_ARRAY | VT_R8, VT_I4, VT_I2, VT_R4, VT_BSTR or
// VT_VARIANT); any other content gives an empty column. In a double column a VARIANT element
// that is empty, an error or non-numeric text becomes the missing-value marker.
struct cST_ColumnRecord {
  VARIANT values;
  BSTR name;
  std::int32_t role;
  std::int32_t reserved;
};
static_assert(sizeof(cST_ColumnRecord) == 40, "record layout must be 40 bytes");

// ---------------------------------------------------------------------------------------------
// matrix3DBase<T> / matrix3D<T>: a numbered sequence of slices, each owned by the object.
//   - cST_MVect instantiations: a slice is a cST_Column whose first entry is the vector; the
//     accessors lead from slice to first entry to vector;
//   - matrix<double>: a slice is a matrix<double>; vbget/getElement address its linear index.
// vbget/vbset are 1-based (front end), getElement/setElement 0-based (workers).
// ---------------------------------------------------------------------------------------------
template <class T>
concept VectorSlices = !std::is_same_v<T, matrix<double>>;

template <class T>
class VELKOR_API matrix3DBase {
 public:
  using Slice = typename Matrix3DSlice<T>::type;
  using Value = typename Matrix3DSlice<T>::value;

  std::int32_t nSlices = 0;
  std::vector<Slice*> slices;  // begin, end, capacity

  matrix3DBase() = default;
  matrix3DBase(const matrix3DBase&) = delete;
  matrix3DBase& operator=(const matrix3DBase&) = delete;
  // The members below are defined in the library, not inline, so that the DLL exports each of
  // them (MinGW does not export the inline members of an explicitly instantiated class).
  virtual ~matrix3DBase();

  virtual Value getElement(int k, int i);
  virtual Value vbget(int k, int i);
  virtual void setElement(int k, int i, Value v);
  virtual void vbset(int k, int i, Value v);

  // Slice k (1-based), no bounds check.
  Slice& operator()(int k);

  void clear();

 protected:
  Slice* slice_at(int k);
  Value read(int k, int i);
  void write(int k, int i, Value v);
};

template <class T>
class VELKOR_API matrix3D : public matrix3DBase<T> {
 public:
  using typename matrix3DBase<T>::Slice;
  using typename matrix3DBase<T>::Value;

  // n empty slice slots (null pointers).
  explicit matrix3D(int n);
  // cST_MVect instantiations: one slice per record (cST_ColumnRecord) of a one-dimensional
  // SAFEARRAY whose elements are 40 bytes wide. A null array, one of another dimension count
  // or element width, or one with no elements gives an empty object. maxSlices > 0 reads at
  // most that many records; 0 or less reads them all.
  matrix3D(SAFEARRAY* records, int maxSlices) requires VectorSlices<T>;
  // matrix<double>: a three-dimensional array of doubles (VT_R8; VT_VARIANT elements are
  // converted). Dimension 1 numbers the slices, dimension 2 the rows and dimension 3 the columns
  // of each slice: element (k, i, j), counted from each dimension's lower bound, goes to row i,
  // column j of slice k. Other shapes give an empty object.
  explicit matrix3D(SAFEARRAY* cube) requires(!VectorSlices<T>);
  // cST_MVect<double>: `slices` slices, each holding `entries` entries (at least one), each a
  // vector of `length` elements set to `init`. Negative counts are taken as 0.
  matrix3D(int slices, int entries, int length,
           double init) requires std::is_same_v<T, cST_MVect<double>>;
  // Refill an existing matrix3D<matrix<double>> from an array of the same shape; an array of
  // another shape changes nothing.
  void Update(SAFEARRAY* cube) requires(!VectorSlices<T>);
  // Element j of entry i of slice k, all 1-based, through the entry's own 1-based accessor
  // (cST_MVect<double>); the vector's spare element when j is out of range.
  Value& operator()(int k, int i, int j) requires std::is_same_v<T, cST_MVect<double>>;
  using matrix3DBase<T>::operator();

  ~matrix3D() override;
};

extern template class matrix3DBase<cST_MVect<double>>;
extern template class matrix3DBase<cST_MVect<int>>;
extern template class matrix3DBase<cST_MVect<std::u16string>>;
extern template class matrix3DBase<matrix<double>>;
extern template class matrix3D<cST_MVect<double>>;
extern template class matrix3D<cST_MVect<int>>;
extern template class matrix3D<cST_MVect<std::u16string>>;
extern template class matrix3D<matrix<double>>;
