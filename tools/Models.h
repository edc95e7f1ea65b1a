#pragma once

#include <string_view>

#include "tessaline/products.h"

namespace tool {

namespace products = VeltranoSDK::products;
using products::Family;
using products::GpioLines;

// Codes as an integrator writes them: "K3610", "K3920arm_rebuild".
class Model {
 public:
  explicit Model(std::string_view code) : code_(code), product_(products::FindProduct(code)) {}

  bool known() const { return product_ != nullptr; }  // else nobody makes such a product
  std::string_view code() const { return code_; }
  const products::Product& product() const { return *product_; }
  const Family& family() const { return product_->family; }

 private:
  std::string_view code_;
  const products::Product* product_;
};

}  // namespace tool
