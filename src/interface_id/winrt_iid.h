// Interface IDs of parameterised Windows Runtime interfaces, derived the
// published way: a version 5 UUID (SHA-1) of the type signature in the
// runtime's namespace {11F47AD5-7B73-42C0-ABAE-878B1E16ADEE}.
#pragma once

#include <string_view>

#include "platform/platform.h"

namespace kel::interface_id {

using platform::Guid;

Guid ParameterizedInterfaceId(std::string_view signature);

// IIterable<Windows.ApplicationModel.Package> and IIterator<...>.
inline constexpr std::string_view kIterableOfPackageSignature =
    "pinterface({faa585ea-6214-4217-afda-7f46de5869b3};rc(Windows.ApplicationModel.Package;"
    "{163c792f-bd75-413c-bf23-b1fe7b95d825}))";
inline constexpr std::string_view kIteratorOfPackageSignature =
    "pinterface({6a79e863-4300-459a-9966-cbb660963ee1};rc(Windows.ApplicationModel.Package;"
    "{163c792f-bd75-413c-bf23-b1fe7b95d825}))";

}  // namespace kel::interface_id
