#include "windows/dataset.h"

#include <new>

#include "velkor/containers.h"

namespace wintest {

cST_DataSet dataset_from_records(Library& lib, const std::vector<NamedColumn>& columns) {
  using M3D = matrix3D<cST_MVect<double>>;
  auto ctor =
      lib.fn<void (*)(void*, SAFEARRAY*, int)>("_ZN8matrix3DI9cST_MVectIdEEC1EP12tagSAFEARRAYi");
  auto dtor = lib.fn<void (*)(void*)>("_ZN8matrix3DI9cST_MVectIdEED1Ev");
  cST_DataSet data;
  if (!ctor || !dtor) return data;
  ole::RecordArray array(ole::real_columns(columns));
  alignas(M3D) unsigned char storage[sizeof(M3D)];
  ctor(storage, array.psa, 0);
  M3D* m = std::launder(reinterpret_cast<M3D*>(storage));
  if (check(m->nSlices == static_cast<int>(columns.size()), "record array read into matrix3D",
            __FILE__, __LINE__)) {
    for (cST_Column<double>* slice : m->slices) {
      if (!slice || slice->entries.empty()) continue;
      data.columns.push_back(slice->entries[0]);
      data.names.push_back(slice->name);
    }
  }
  dtor(storage);
  return data;
}

}  // namespace wintest
