// Host data sets: libraries, open data sets, input and output vectors.
#ifndef FMSD_HOST_DATASETS_H
#define FMSD_HOST_DATASETS_H

namespace fmsd::host {

class Host;

class DataSets {
 public:
  explicit DataSets(Host& host);
  ~DataSets();
};

}  // namespace fmsd::host

#endif
