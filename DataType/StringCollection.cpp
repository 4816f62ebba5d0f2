#include <DataType/StringCollection.h>

#include <deque>
#include <string>

namespace WDataType {
namespace {

class StringCollectionImpl final : public StringCollection {
public:
    void Append(wchar_t const* text) override { strings_.emplace_back(text != nullptr ? text : L""); }
    unsigned long GetCount() const override { return strings_.size(); }
    wchar_t const* GetAt(unsigned long index) const override { return strings_.at(index).c_str(); }

private:
    // Appending to a deque leaves its strings where they are, so what GetAt gave stays valid.
    std::deque<std::wstring> strings_;
};

} // namespace

std::unique_ptr<StringCollection> CreateStringCollection() {
    return std::make_unique<StringCollectionImpl>();
}

} // namespace WDataType
