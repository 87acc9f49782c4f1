#include "frontend/enum_unknown.h"

#include <algorithm>

namespace tessary {

std::span<const InterfaceRow> CEnumUnknown::InterfaceTable() {
    static constexpr InterfaceRow kTable[] = {
        Row<CEnumUnknown, IEnumUnknown>(IID_IEnumUnknown),
        Row<CEnumUnknown, IEnumUnknownPrivate>(IID_IEnumUnknownPrivate),
    };
    return kTable;
}

STDMETHODIMP CEnumUnknown::Next(ULONG count, IUnknown** items, ULONG* fetched) {
    if (!items || (count != 1 && !fetched)) return E_INVALIDARG;
    LockHolder hold(m_objectLock);
    const ULONG given = std::min(count, m_count - m_next);
    for (ULONG i = 0; i < given; ++i) items[i] = ComPtr<IUnknown>(m_items[m_next + i]).Detach();
    m_next += given;
    if (fetched) *fetched = given;
    return given == count ? S_OK : S_FALSE;
}

STDMETHODIMP CEnumUnknown::Skip(ULONG count) {
    LockHolder hold(m_objectLock);
    const ULONG passed = std::min(count, m_count - m_next);
    m_next += passed;
    return passed == count ? S_OK : S_FALSE;
}

STDMETHODIMP CEnumUnknown::Reset() {
    LockHolder hold(m_objectLock);
    m_next = 0;
    return S_OK;
}

STDMETHODIMP CEnumUnknown::Clone(IEnumUnknown** copy) {
    if (!copy) return E_INVALIDARG;
    *copy = nullptr;
    ComPtr<CEnumUnknown> made;
    const HRESULT result = ConstructComObject(made);
    if (FAILED(result)) return result;
    LockHolder hold(m_objectLock);
    std::copy_n(m_items, m_count, made->m_items);
    made->m_count = m_count;
    made->m_next = m_next;
    *copy = made.Detach();
    return S_OK;
}

STDMETHODIMP CEnumUnknown::Initialize(IUnknown* item) {
    LockHolder hold(m_objectLock);
    m_items[0] = ComPtr<IUnknown>(item);
    m_count = item ? 1 : 0;
    m_next = 0;
    return S_OK;
}

}  // namespace tessary
