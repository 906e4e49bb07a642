#include "clients/preferences/window/storage/KeyRing.h"

#include <libsecret/secret.h>

#include <memory>

namespace keldane {

namespace {

using KeyRingThen = std::function<void(const std::string&)>;

const SecretSchema kSchema = {
    "com.keldane.repository",
    SECRET_SCHEMA_NONE,
    {{"repository", SECRET_SCHEMA_ATTRIBUTE_STRING}, {nullptr, SecretSchemaAttributeType{}}},
    0,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr};

void stored(GObject*, GAsyncResult* result, gpointer data) {
  const std::unique_ptr<KeyRingThen> then(static_cast<KeyRingThen*>(data));
  GError* error = nullptr;
  secret_password_store_finish(result, &error);
  const std::string problem = error == nullptr ? std::string() : error->message;
  g_clear_error(&error);
  (*then)(problem);
}

}  // namespace

void storeInKeyRing(const std::string& key, const std::string& repositoryId, const std::string& label,
                    std::function<void(const std::string& problem)> then) {
  secret_password_store(&kSchema, SECRET_COLLECTION_DEFAULT, label.c_str(), key.c_str(), nullptr, stored,
                        new KeyRingThen(std::move(then)), "repository", repositoryId.c_str(), nullptr);
}

}  // namespace keldane
