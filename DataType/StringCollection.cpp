#include <DataType/StringCollection.h>

#include <algorithm>
#include <cwchar>
#include <vector>

namespace WDataType {
namespace {

class StringCollectionImpl final : public StringCollection {
public:
    void Append(wchar_t const* text) override {
        std::size_t const size = (text != nullptr ? std::wcslen(text) : 0) + 1;
        if (left_ < size) {
            AddBlock(std::max(size, BLOCK));
        }
        strings_.push_back(next_);
        std::wmemcpy(next_, text != nullptr ? text : L"", size);
        next_ += size;
        left_ -= size;
    }

    unsigned long GetCount() const override { return strings_.size(); }
    wchar_t const* GetAt(unsigned long index) const override { return strings_.at(index); }

private:
    /// How many characters are allocated at once, so that a long list of names takes few allocations.
    static constexpr std::size_t BLOCK = 1024;

    void AddBlock(std::size_t size) {
        blocks_.emplace_back(); // before the memory is there, which would be lost if the list could not grow
        blocks_.back().reset(new wchar_t[size]);
        next_ = blocks_.back().get();
        left_ = size;
    }

    // The strings stand one behind the other in blocks that never move, so what GetAt gave stays valid.
    std::vector<std::unique_ptr<wchar_t[]>> blocks_;
    std::vector<wchar_t const*> strings_;
    wchar_t* next_ = nullptr;
    std::size_t left_ = 0;
};

} // namespace

std::unique_ptr<StringCollection> CreateStringCollection() {
    return std::make_unique<StringCollectionImpl>();
}

} // namespace WDataType
