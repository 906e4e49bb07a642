#include <gio/gio.h>

#include <stdexcept>

#include "bench/peers/Buses.h"

namespace keldane::bench {

namespace {

constexpr char kInterface[] =
    "<node><interface name='bench.Daemon'><method name='DictionaryForPath'>"
    "<arg type='s' name='path' direction='in'/><arg type='b' name='sizes' direction='in'/>"
    "<arg type='a{sv}' name='node' direction='out'/></method></interface></node>";

GVariant* variantOf(const PropertyList& value) {
  if (value.isString()) {
    return g_variant_new_string(value.string().data());
  }
  if (value.isDate()) {
    return g_variant_new_double(value.date().secondsSinceReference);
  }
  return value.numberKind() == PropertyList::NumberKind::boolean
             ? g_variant_new_boolean(value.boolValue() ? TRUE : FALSE)
             : g_variant_new_uint64(value.unsignedLongLongValue());
}

void answerCall(GDBusConnection* /*connection*/, const gchar* /*sender*/, const gchar* /*path*/,
                const gchar* /*interface*/, const gchar* /*method*/, GVariant* /*arguments*/,
                GDBusMethodInvocation* invocation, gpointer data) {
  const auto& answer = *static_cast<const PropertyList*>(data);
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  for (std::size_t i = 0; i < answer.count(); ++i) {
    const PropertyList::Entry entry = answer.entry(i);
    g_variant_builder_add(&builder, "{sv}", entry.first.string().data(), variantOf(entry.second));
  }
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(a{sv})", &builder));
}

struct Server {
  PropertyList answer;
  GMainLoop* loop = nullptr;
  GDBusInterfaceVTable table{answerCall, nullptr, nullptr, {}};
};

gboolean accepted(GDBusServer* /*server*/, GDBusConnection* connection, gpointer data) {
  auto& server = *static_cast<Server*>(data);
  GDBusNodeInfo* info = g_dbus_node_info_new_for_xml(kInterface, nullptr);
  g_object_ref(connection);
  g_dbus_connection_register_object(connection, "/bench", info->interfaces[0], &server.table, &server.answer,
                                    nullptr, nullptr);
  g_signal_connect_swapped(connection, "closed", G_CALLBACK(g_main_loop_quit), server.loop);
  return TRUE;
}

[[noreturn]] void fail(GError* error) {
  const std::string text = error->message;
  g_error_free(error);
  throw std::runtime_error(text);
}

}  // namespace

struct GDBusClient::Link {
  GDBusConnection* connection = nullptr;
};

void serveGDBus(const std::string& path, const PropertyList& answer) {
  GError* error = nullptr;
  gchar* guid = g_dbus_generate_guid();
  GDBusServer* server = g_dbus_server_new_sync(("unix:path=" + path).c_str(),
                                               G_DBUS_SERVER_FLAGS_AUTHENTICATION_ALLOW_ANONYMOUS, guid,
                                               nullptr, nullptr, &error);
  if (server == nullptr) {
    fail(error);
  }
  Server state;
  state.answer = answer;
  state.loop = g_main_loop_new(nullptr, FALSE);
  g_signal_connect(server, "new-connection", G_CALLBACK(accepted), &state);
  g_dbus_server_start(server);
  g_main_loop_run(state.loop);
}

GDBusClient::GDBusClient(const std::string& path) : link_(std::make_unique<Link>()) {
  GError* error = nullptr;
  link_->connection = g_dbus_connection_new_for_address_sync(
      ("unix:path=" + path).c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, nullptr, &error);
  if (link_->connection == nullptr) {
    fail(error);
  }
}

GDBusClient::~GDBusClient() {
  g_dbus_connection_close_sync(link_->connection, nullptr, nullptr);
  g_object_unref(link_->connection);
}

std::size_t GDBusClient::call(const std::string& file) {
  GError* error = nullptr;
  GVariant* reply =
      g_dbus_connection_call_sync(link_->connection, nullptr, "/bench", "bench.Daemon", "DictionaryForPath",
                                  g_variant_new("(sb)", file.c_str(), FALSE), G_VARIANT_TYPE("(a{sv})"),
                                  G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (reply == nullptr) {
    fail(error);
  }
  std::size_t entries = 0;
  GVariantIter* iterator = nullptr;
  g_variant_get(reply, "(a{sv})", &iterator);
  const gchar* key = nullptr;
  GVariant* value = nullptr;
  while (g_variant_iter_loop(iterator, "{&sv}", &key, &value) != FALSE) {
    entries += g_variant_get_size(value) > 0 ? 1 : 0;
  }
  g_variant_iter_free(iterator);
  g_variant_unref(reply);
  return entries;
}

}  // namespace keldane::bench
