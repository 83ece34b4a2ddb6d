#include "qx_db/callback/callbacks.h"

#include "qx_db/core/document.h"

namespace qx {

template <class I, Registration Rule>
I* CallbackSlot<I, Rule>::m_pInstance = nullptr;

template <class I, Registration Rule>
CallbackSlot<I, Rule>::CallbackSlot(I* self) {
  if (Rule == Registration::kLastWins || !m_pInstance) m_pInstance = self;
}

template <class I, Registration Rule>
CallbackSlot<I, Rule>::~CallbackSlot() {
  // Deliberate: the slot is emptied even when another object holds it.
  if (Rule == Registration::kLastWins) m_pInstance = nullptr;
}

template class CallbackSlot<IAppDB, Registration::kLastWins>;
template class CallbackSlot<IUpdateDB, Registration::kLastWins>;
template class CallbackSlot<IFuncDB, Registration::kLastWins>;
template class CallbackSlot<ICustomPostDB, Registration::kLastWins>;
template class CallbackSlot<ICustomMcas, Registration::kLastWins>;
template class CallbackSlot<IRenderConnect, Registration::kLastWins>;
template class CallbackSlot<IQXDbInterface, Registration::kFirstWins>;

IAppDB::IAppDB() : CallbackSlot(this) {}
IAppDB::~IAppDB() = default;
/// What the sessions call after every event; see SetStepHook.
void IUpdateDB::Tell(CQXDBSession& session) {
  if (IUpdateDB* update = IUpdateDB::Instance()) update->UpdateDB(&session, 0);
}

IUpdateDB::IUpdateDB() : CallbackSlot(this) {
  static const StepHook former = SetStepHook(Tell);
  static_cast<void>(former);
}
IUpdateDB::~IUpdateDB() = default;
IFuncDB::IFuncDB() : CallbackSlot(this) {}
IFuncDB::~IFuncDB() = default;
ICustomPostDB::ICustomPostDB() : CallbackSlot(this) {}
ICustomPostDB::~ICustomPostDB() = default;
ICustomMcas::ICustomMcas() : CallbackSlot(this) {}
ICustomMcas::~ICustomMcas() = default;
IRenderConnect::IRenderConnect() : CallbackSlot(this) {}
IRenderConnect::~IRenderConnect() = default;
IQXDbInterface::IQXDbInterface() : CallbackSlot(this) {}
IQXDbInterface::~IQXDbInterface() = default;

IElemSideDetect::IElemSideDetect(CQXDocBase* document)
    : m_pDoc(document),
      m_pSession(document ? document->GetDBSession() : nullptr),
      m_pUnits(m_pSession ? &m_pSession->Units() : nullptr) {}

IElemSideDetect::~IElemSideDetect() = default;

}  // namespace qx
