#pragma once

#include <string_view>
#include <vector>

#include "tessaline/products.h"

namespace tool {

namespace products = VeltranoSDK::products;
using products::Family;
using products::GpioLines;

// The model codes of all products that are made.
std::vector<std::string_view> ModelCodes();
std::vector<std::string_view> ModelCodes(const Family& family);

// Codes as an integrator writes them: "K3610", "K3920arm_rebuild". The library itself only looks at
// parts of a code, so that it takes a mistyped one for another product.
class Model {
 public:
  explicit Model(std::string_view code);

  bool known() const { return product_ != nullptr; }  // else nobody makes such a product
  // Throws a Failure that names the nearest code unless it is known.
  void Require() const;
  std::string_view code() const { return code_; }
  const products::Product& product() const { return *product_; }
  const Family& family() const { return product_->family; }

 private:
  std::string_view code_;
  const products::Product* product_;
};

}  // namespace tool
