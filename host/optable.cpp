// The host operation table.  Every operation gets a slot; the ones whose machinery
// this host does not have yet answer with a failure of their result type.
#include <type_traits>

#include "host/operations.h"

namespace fmsd::host {

namespace {

template <class R>
R failure() noexcept {
  if constexpr (std::is_same_v<R, double>)
    return missing_value();
  else if constexpr (std::is_pointer_v<R>)
    return nullptr;
  else if constexpr (std::is_same_v<R, fmsd_word>)
    return 0;
  else
    return -1;
}

template <class F>
struct Unavailable;

template <class R, class... A>
struct Unavailable<R(A...)> {
  static R call(A...) noexcept { return failure<R>(); }
};

template <class R, class... A>
struct Unavailable<R(A..., ...)> {
  static R call(A..., ...) noexcept { return failure<R>(); }
};

fmsd_word virv2g_op(void* const* table, void* block, int count, fmsd_word task, void* pidb) noexcept {
  Host* host = Host::current();
  return host != nullptr ? host->register_services(table, block, count, task, pidb) : 0;
}

int xmemdef_op() noexcept {
  Host* host = Host::current();
  return host != nullptr && host->pool().failed() ? 1 : 0;
}

}  // namespace

void install_operations(Host& host) noexcept {
#define FMSD_BIND_UNAVAILABLE(name, facility, slot, result, params) \
  bind<op::name>(host, &Unavailable<fmsd_fn_##name>::call);
  FMSD_HOST_OPERATIONS(FMSD_BIND_UNAVAILABLE)
#undef FMSD_BIND_UNAVAILABLE

  bind<op::virv2g>(host, virv2g_op);
  bind<op::zscp>(host, zscp);
  bind<op::zinner>(host, zinner);
  bind<op::zsweep>(host, zsweep);
  bind<op::xmemdef>(host, xmemdef_op);
  bind<op::xpsstr>(host, xpsstr_op);
  bind<op::ziddmdy>(host, ziddmdy);
  bind<op::zidmdyd>(host, zidmdyd);
  bind<op::xebug>(host, xebug_op);

  install_list_operations(host);
  install_argument_operations(host);
  install_dataset_operations(host);
  install_message_operations(host);
}

}  // namespace fmsd::host
