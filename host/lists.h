// Host lists: a registry of lists named by identifiers.
#ifndef FMSD_HOST_LISTS_H
#define FMSD_HOST_LISTS_H

namespace fmsd::host {

class ListRegistry {
 public:
  ListRegistry();
  ~ListRegistry();
};

}  // namespace fmsd::host

#endif
