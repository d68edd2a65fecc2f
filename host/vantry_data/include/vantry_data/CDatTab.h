// Table objects: a named object holding named columns of values (fields). The lookup tables are
// tables whose values are the integer field "Grey".
#pragma once
#include <memory>
#include <vector>

#include <vantry_util/CKrvHandler.h>
#include <vantry_util/KrvExport.h>

class VANTRY_DATA_EXPORT CDatField {
public:
    explicit CDatField(const CKrvString& name) : m_name(name) {}
    CDatField(const CDatField&) = delete;
    CDatField& operator=(const CDatField&) = delete;
    virtual ~CDatField();

    const CKrvString& GetName() const noexcept { return m_name; }
    virtual int GetSize() const noexcept = 0;

private:
    CKrvString m_name;
};

class VANTRY_DATA_EXPORT CDatIntField : public CDatField {
public:
    CDatIntField(const CKrvString& name, std::vector<int> values) : CDatField(name), m_values(std::move(values)) {}
    ~CDatIntField() override;

    int GetSize() const noexcept override { return static_cast<int>(m_values.size()); }
    // The field's own storage of its values (null when it holds none).
    int* GetData();
    const std::vector<int>& Values() const noexcept { return m_values; }

private:
    std::vector<int> m_values;
};

class VANTRY_DATA_EXPORT CDatRealField : public CDatField {
public:
    CDatRealField(const CKrvString& name, std::vector<double> values) : CDatField(name), m_values(std::move(values)) {}
    ~CDatRealField() override;

    int GetSize() const noexcept override { return static_cast<int>(m_values.size()); }
    double* GetData() noexcept { return m_values.empty() ? nullptr : m_values.data(); }

private:
    std::vector<double> m_values;
};

class VANTRY_DATA_EXPORT CDatTab : public CKrvObject {
public:
    explicit CDatTab(const CKrvString& name) : CKrvObject(name) {}
    ~CDatTab() override;

    // The field of that name, or null.
    CDatField* GetField(const CKrvString& fieldName);
    // Adds the field, or replaces the field of the same name.
    void SetField(std::unique_ptr<CDatField> field);

protected:
    // GetField without its fault point, for the suite's own use.
    CDatField* FindField(const CKrvString& fieldName) const noexcept;

private:
    std::vector<std::unique_ptr<CDatField>> m_fields;
};
