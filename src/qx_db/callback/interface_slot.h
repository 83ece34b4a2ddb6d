#pragma once
// How callback interfaces register: a process-wide slot for the one live object.

#include "qx_db/callback/app_types.h"
#include "qx_db/export.h"

namespace qx {

/// Who holds the slot when several objects are made.
enum class Registration {
  kLastWins,   ///< each new object takes the slot; the end of any object empties it
  kFirstWins,  ///< the first object takes the slot and is named there for the life of the process
};

/// Base of an interface `I` with a slot. Registering is what the constructor does; copies copy
/// nothing and do not register, but their end empties a kLastWins slot like any other's.
/// Threads: plain pointers without a lock; register on the main thread before any model work.
template <class I, Registration Rule>
class QXDB_API CallbackSlot {
 public:
  /// The registered object, null when there is none. Not owned.
  static I* Instance() { return m_pInstance; }
  CallbackSlot& operator=(const CallbackSlot&) { return *this; }

 protected:
  /// `self` is the object that this is the base of.
  explicit CallbackSlot(I* self);
  CallbackSlot(const CallbackSlot&) {}
  ~CallbackSlot();

 private:
  static I* m_pInstance;
};

class QXDB_API IAppDB;
class QXDB_API IUpdateDB;
class QXDB_API IFuncDB;
class QXDB_API ICustomPostDB;
class QXDB_API ICustomMcas;
class QXDB_API IRenderConnect;
class QXDB_API IQXDbInterface;

extern template class QXDB_API CallbackSlot<IAppDB, Registration::kLastWins>;
extern template class QXDB_API CallbackSlot<IUpdateDB, Registration::kLastWins>;
extern template class QXDB_API CallbackSlot<IFuncDB, Registration::kLastWins>;
extern template class QXDB_API CallbackSlot<ICustomPostDB, Registration::kLastWins>;
extern template class QXDB_API CallbackSlot<ICustomMcas, Registration::kLastWins>;
extern template class QXDB_API CallbackSlot<IRenderConnect, Registration::kLastWins>;
extern template class QXDB_API CallbackSlot<IQXDbInterface, Registration::kFirstWins>;

}  // namespace qx

/// Around the operations of an interface: their default bodies use no parameter, but a parameter's
/// name tells a host author what it is.
#if defined(__GNUC__)
#define QX_CALLBACKS_BEGIN \
  _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wunused-parameter\"")
#define QX_CALLBACKS_END _Pragma("GCC diagnostic pop")
#elif defined(_MSC_VER)
#define QX_CALLBACKS_BEGIN __pragma(warning(push)) __pragma(warning(disable : 4100))
#define QX_CALLBACKS_END __pragma(warning(pop))
#else
#define QX_CALLBACKS_BEGIN
#define QX_CALLBACKS_END
#endif
