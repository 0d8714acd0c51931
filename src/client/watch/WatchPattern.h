// Which methods a user means: the ways that people write a method, in the notation of probes.
#pragma once

#include <string>

namespace vdk {

// `com.shop.Cart:add(*)` for `com.shop.Cart.add`, `com.shop.Cart#add`, `com.shop.Cart::add`,
// `com/shop/Cart:add` and `com.shop.Cart:add`; `com.shop.Cart:*(*)` for a class alone,
// `com.shop.*:*(*)` for `com.shop.*`. What is in that notation stays as it is, annotations,
// parameters and result included. Throws ClientError Usage "watch.pattern" for a text that names no
// class or no method.
std::string watchPattern(const std::string& text);

} // namespace vdk
