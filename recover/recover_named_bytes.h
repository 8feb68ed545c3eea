// Bytes that the writer hands on without looking at them. They need not be in memory: the writer is given a name for
// them, an address of its own memory, and where it writes that name they are generated.
#ifndef ZMV_RECOVER_NAMED_BYTES_H
#define ZMV_RECOVER_NAMED_BYTES_H

#include <cstdint>

namespace zmv::recover {

// A recording that is being completed.
class Output {
 public:
  // Appends bytes. 0, or the first failure, after which nothing is written any more.
  virtual int32_t Append(const void* bytes, uint32_t count) = 0;
  // Reads bytes of the recording; those appended last may be missing. 0; ZMV_E_READ when there are fewer.
  virtual int32_t Read(uint64_t position, void* bytes, uint32_t count) = 0;
  // 0, or the first failure.
  virtual int32_t Result() const = 0;

 protected:
  ~Output() = default;
};

class NamedBytes {
 public:
  class Source {
   public:
    // Appends the bytes that go by `name`. 0, or a negative code.
    virtual int32_t Generate(const void* name, Output& output) = 0;

   protected:
    ~Source() = default;
  };

  // Lets `source` generate what is written under these names (null: none).
  void Set(Source* source, const void* first, const void* second) {
    source_ = source;
    names_[0] = first;
    names_[1] = second;
  }
  bool Has(const void* name) const { return source_ != nullptr && (name == names_[0] || name == names_[1]); }
  int32_t Generate(const void* name, Output& output) const { return source_->Generate(name, output); }

 private:
  Source* source_ = nullptr;
  const void* names_[2] = {};
};

}  // namespace zmv::recover

#endif
