// An enumerator over a list of held objects; the metadata of a frame is a list of one.
#pragma once

#include "frontend/com_object.h"

namespace tessary {

class CEnumUnknown final : public ComObject<CEnumUnknown, IEnumUnknown, IEnumUnknownPrivate> {
public:
    static std::span<const InterfaceRow> InterfaceTable();

    STDMETHODIMP Next(ULONG count, IUnknown** items, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumUnknown** copy) override;

    // Sets the item and starts over; null makes the list empty.
    STDMETHODIMP Initialize(IUnknown* item) override;

private:
    static constexpr ULONG kCapacity = 1;

    ComPtr<IUnknown> m_items[kCapacity];
    ULONG m_count = 0;
    ULONG m_next = 0;
};

}  // namespace tessary
