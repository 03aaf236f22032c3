// A COM or Windows Runtime apartment entered for a scope. The thread is
// initialised on construction; the initialisation is undone at the end of the
// scope exactly when this scope made it (S_OK, or S_FALSE: the thread was
// already initialised the same way and the count went up). A thread already
// in another kind of apartment answers RPC_E_CHANGED_MODE: it can still be
// used, and it is not this scope's to undo.
//
// Two exits break that balance on purpose, and say so where they are used:
// Dismiss() leaves the initialisation in place, UninitializeEvenIfNotOwned()
// undoes it at once whoever made it. Detach() hands the duty to undo it to a
// caller that keeps it as a flag of its own.
#pragma once

#include <utility>

#include "platform/platform.h"

namespace kel::platform {

struct ComApartmentTraits {
  using InitType = DWORD;
  [[nodiscard]] static HRESULT Initialize(InitType type) { return Current().CoInitializeEx(type); }
  static void Uninitialize() { Current().CoUninitialize(); }
};

struct RuntimeApartmentTraits {
  using InitType = int;
  [[nodiscard]] static HRESULT Initialize(InitType type) { return Current().RoInitialize(type); }
  static void Uninitialize() { Current().RoUninitialize(); }
};

template <typename Traits>
class ScopedApartment {
 public:
  explicit ScopedApartment(typename Traits::InitType type)
      : result_(Traits::Initialize(type)), owned_(Succeeded(result_)) {}
  ScopedApartment(const ScopedApartment&) = delete;
  ScopedApartment& operator=(const ScopedApartment&) = delete;
  ~ScopedApartment() { Leave(); }

  // Takes over the duty to undo an initialisation that an earlier call
  // handed out as a flag (the counterpart of Detach).
  [[nodiscard]] static ScopedApartment Adopt(bool owned) { return ScopedApartment(AdoptTag{}, owned); }
  ScopedApartment(ScopedApartment&& other) noexcept
      : result_(other.result_), owned_(std::exchange(other.owned_, false)) {}

  // The initialisation's own answer.
  [[nodiscard]] HRESULT Result() const { return result_; }
  // The thread is in an apartment the scope may use.
  [[nodiscard]] bool Usable() const { return Succeeded(result_) || result_ == RPC_E_CHANGED_MODE; }
  explicit operator bool() const { return Usable(); }
  // This scope still has to undo the initialisation.
  [[nodiscard]] bool Owned() const { return owned_; }

  // Undoes the initialisation now if this scope owns it; the scope's end
  // then does nothing. For callers whose order of calls puts the
  // uninitialisation before something else they do on the way out.
  void Leave() {
    if (std::exchange(owned_, false)) Traits::Uninitialize();
  }
  // The caller takes the duty to undo the initialisation; answers whether
  // there was one.
  [[nodiscard]] bool Detach() { return std::exchange(owned_, false); }
  // Leaves the thread initialised when the scope ends.
  void Dismiss() { owned_ = false; }
  // Uninitialises once now, even when this scope did not initialise (the
  // thread was in another apartment already).
  void UninitializeEvenIfNotOwned() {
    owned_ = false;
    Traits::Uninitialize();
  }

 private:
  struct AdoptTag {};
  ScopedApartment(AdoptTag, bool owned) : result_(owned ? S_OK : RPC_E_CHANGED_MODE), owned_(owned) {}

  HRESULT result_;
  bool owned_;
};

using ScopedComApartment = ScopedApartment<ComApartmentTraits>;
using ScopedRuntimeApartment = ScopedApartment<RuntimeApartmentTraits>;

}  // namespace kel::platform
