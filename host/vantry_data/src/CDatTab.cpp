// Table objects and their fields.
#include <vantry_data/CDatTab.h>

#include <vantry_util/KrvFault.h>

CDatField::~CDatField() = default;
CDatIntField::~CDatIntField() = default;
CDatRealField::~CDatRealField() = default;
CDatTab::~CDatTab() = default;

int* CDatIntField::GetData() {
    KRV_FAULT_RETURN(int*, "CDatIntField::GetData");
    return m_values.empty() ? nullptr : m_values.data();
}

CDatField* CDatTab::GetField(const CKrvString& fieldName) {
    // Armed with Custom, the answer is a field of real values of that name: a field that exists
    // but is not an integer field.
    static KrvFault::Point& fault = KrvFault::point("CDatTab::GetField");
    if (fault.fire()) {
        if (fault.answer() != KrvFault::Answer::Custom) return nullptr;
        static CDatRealField other(CKrvString("Grey"), {0.5});
        return &other;
    }
    return FindField(fieldName);
}

CDatField* CDatTab::FindField(const CKrvString& fieldName) const noexcept {
    for (const auto& field : m_fields)
        if (field->GetName() == fieldName) return field.get();
    return nullptr;
}

void CDatTab::SetField(std::unique_ptr<CDatField> field) {
    for (auto& existing : m_fields)
        if (existing->GetName() == field->GetName()) {
            existing = std::move(field);
            return;
        }
    m_fields.push_back(std::move(field));
}
