#pragma once
// Settings of the host: the parameter store seen as JSON.
//
// The store starts from the factory defaults; a settings file (a JSON object of key -> value)
// and then `--set KEY=VALUE` options are applied on top. A value is always parsed according to
// the type the key already holds, so a setting can never change a key's type: JSON numbers and
// booleans for numeric keys, JSON strings for text keys, and for every other type the value's
// one-line text form (a temperature "25,0,C"; for convenience also "25", "25C", "298.15K" or a
// plain number meaning degrees Celsius, and a relative humidity "0.5" or "50%"). Unknown keys
// and malformed values throw SettingsError with a one-line message naming the key.
//
// Saving writes the user's settings (the keys a user changes, see userSettingKeys) into the
// settings file, atomically (temporary file + rename), keeping keys of the file it does not own.

#include "nordalib/core/dataproxy/DataProxy.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace nordacam {

class SettingsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A new value of the type `current` holds, parsed from JSON / from text. Throws SettingsError.
std::shared_ptr<norda::exp::Variant> parseJsonFor(const norda::exp::Variant& current,
                                                  const nlohmann::json& value, const std::string& key);
std::shared_ptr<norda::exp::Variant> parseTextFor(const norda::exp::Variant& current, const std::string& text,
                                                  const std::string& key);
// JSON form of a value: numbers and booleans as such, text as a string, other storable types as
// their one-line text form; a matrix is summarised, never dumped.
nlohmann::json toJson(const norda::exp::Variant& value);

// Keys a user sets and that survive a restart: those the key schema says the user writes.
std::vector<std::string> userSettingKeys(const norda::exp::DataProxy<std::string>& store);
// Whether a key may be written from outside (settings file, --set, the HTTP API): not a result
// or the device's state.
bool isWritableSetting(const std::string& key);

class Settings {
public:
    explicit Settings(norda::exp::DataProxy<std::string>& store) : m_store(store) {}

    // Applies every entry of a JSON settings file; the file becomes the target of save().
    void loadFile(const std::string& path);
    // Applies one JSON object of settings (all-or-nothing: every value is parsed before any is set).
    void apply(const nlohmann::json& object, const std::string& origin);
    // "KEY=VALUE" of the command line.
    void applyAssignment(const std::string& assignment);
    // One key from outside; notifies observers.
    void set(const std::string& key, const nlohmann::json& value);
    nlohmann::json get(const std::string& key) const;
    nlohmann::json userSettings() const;

    // A check of a key's new value beyond its type and the schema's range (a palette that exists,
    // a defined measurement range); it returns an error text, empty when the value is fine. Add
    // checks before applying settings.
    using Check = std::function<std::string(const norda::exp::Variant&)>;
    void addCheck(const std::string& key, Check check) { m_checks[key] = std::move(check); }
    // For checks that weigh one key against others: the value a key will have once the settings
    // being applied are set (the request's own, else the store's).
    std::shared_ptr<norda::exp::Variant> valueAfter(const std::string& key) const;

    void setPath(const std::string& path) { m_path = path; }
    const std::string& path() const { return m_path; }
    // Writes the user's settings to path(); throws SettingsError when that fails.
    void save() const;

private:
    std::shared_ptr<norda::exp::Variant> current(const std::string& key) const;
    std::shared_ptr<norda::exp::Variant> inRange(const std::string& key,
                                                 std::shared_ptr<norda::exp::Variant> v) const;
    // Range-checked values of one request -> the host checks with all of them known -> the store.
    void setAll(std::vector<std::pair<std::string, std::shared_ptr<norda::exp::Variant>>> values,
                const std::string& origin);

    norda::exp::DataProxy<std::string>& m_store;
    std::string m_path;
    std::map<std::string, Check> m_checks;
    mutable std::mutex m_saveMutex; // saves come from the pipeline and the server at once
    std::mutex m_applyMutex;        // one writer at a time: checks see what the last writer left
    std::map<std::string, std::shared_ptr<norda::exp::Variant>> m_pending; // under m_applyMutex
};

} // namespace nordacam
