#include <DataType/Binary.h>

#include <cstring>

namespace WDataType {
namespace {

class BinaryImpl final : public Binary {
public:
    explicit BinaryImpl(unsigned long size) : bytes_(new char[size]()), fullSize_(size), size_(size) {}

    unsigned long GetSize() const override { return size_; }
    char* GetBuffer() const override { return bytes_.get(); }
    void ReduceSize(unsigned long count) override { size_ -= count; }
    void RestoreFullSize() override { size_ = fullSize_; }

private:
    std::unique_ptr<char[]> bytes_;
    unsigned long fullSize_;
    unsigned long size_;
};

} // namespace

bool Binary::IsEmpty() const {
    return GetSize() == 0;
}

void Binary::Clear() {
    ReduceSize(GetSize());
}

void Binary::Fill(char value) {
    std::memset(GetBuffer(), value, GetSize());
}

void Binary::SetSize(unsigned long size) {
    RestoreFullSize();
    if (GetSize() > size) {
        ReduceSize(GetSize() - size);
    }
}

std::unique_ptr<Binary> CreateBinary(unsigned long size, WBase::Buffer* /*storage*/) {
    return std::make_unique<BinaryImpl>(size);
}

} // namespace WDataType
