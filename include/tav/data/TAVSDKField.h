#pragma once
// TAVSDKField: the field dictionary that turns the long snake_case names of
// session data ("video_title", "custom_3") into a short beacon key (`code`) and
// the kind of record that owns it (`dataType`):
//   0 TAVSDKViewData, 1 TAVSDKVideoData, 2 TAVSDKCustomerVideoData,
//   3 TAVSDKCustomerPlayerData, 4 TAVSDKCustomerViewData, 5 TAVSDKCustomData.
//
// Ownership: the dictionary is built once on first use and lives for the whole
// process; its field objects are shared and immutable.
// Thread rules: `indexMapping` and `searchWithKey` may be called from any thread.
// A field made by the caller is a plain object and not synchronised.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tav {

class TAVSDKField {
 public:
  /// The dictionary: long name and field, in table order.
  using IndexMapping = std::vector<std::pair<std::string, std::shared_ptr<const TAVSDKField>>>;

  TAVSDKField() = default;
  TAVSDKField(std::int64_t dataType, std::string code);

  [[nodiscard]] std::int64_t dataType() const { return _dataType; }
  void setDataType(std::int64_t value) { _dataType = value; }
  [[nodiscard]] const std::string& code() const { return _code; }
  void setCode(std::string value) { _code = std::move(value); }

  /// The 25 entries, built on the first call; every call returns the same table.
  static const IndexMapping& indexMapping();
  /// The field for an exact, case-sensitive long name, or nullptr when unknown.
  static std::shared_ptr<const TAVSDKField> searchWithKey(std::string_view key);

 private:
  std::int64_t _dataType = 0;
  std::string _code;
};

}  // namespace tav
