#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/address.h"
#include "tools/connection.h"
#include "tools/options.h"
#include "tools/output.h"
#include "tools/status.h"

namespace treectl {

/// What a command works with: its options, the output, the messages, the status, and a connection
/// to each server that it has needed. For one thread.
class Context {
 public:
  explicit Context(Options options);

  [[nodiscard]] const Options& options() const { return options_; }
  [[nodiscard]] Output& output() { return output_; }
  [[nodiscard]] const Messages& messages() const { return messages_; }

  /// How long a request may take, in seconds.
  [[nodiscard]] double requestLimit() const;

  /// Whether output is coloured.
  [[nodiscard]] bool colored() const { return colored_; }

  /// The first error so far.
  [[nodiscard]] Status status() const { return status_; }

  /// Prints "SUBJECT: reason" and keeps the status, unless there was an error before.
  void fail(Status status, std::string_view subject, std::string_view reason);
  /// The same with the text of a result.
  void fail(std::string_view subject, ModelSrv::ModelRes result,
            RequestKind kind = RequestKind::read);
  /// The same for a file that could not be read or written; `number` is that of the error. If a
  /// signal interrupted it, only the status is that of the signal.
  void failFile(const std::string& path, int number);
  /// Keeps the status without a message.
  void note(Status status);

  /// An error that is not reported yet.
  struct KeptError {
    Status status = Status::success;
    std::string subject;
    std::string reason;
  };

  /// Keeps the first error from now on instead of reporting it, until it is taken.
  void keepError() { kept_ = KeptError{}; }
  /// What has been kept; its status is `Status::success` if there was none.
  [[nodiscard]] KeptError takeError();

  /// Lets connections that are made from now on come back after a loss.
  void reconnect() { reconnects_ = true; }

  /// The connection to `server`, made at the first call. Null if it cannot be made; that is then a
  /// error of `subject`.
  Connection* connect(const std::string& server, std::string_view subject);
  /// Tries to connect again if there is no connection, without messages.
  ModelSrv::ModelRes tryConnect(const std::string& server);
  /// Ends the connection. Its watches have ended.
  void disconnect(const std::string& server) { servers_.erase(server); }
  /// The same without messages: whether there is such a server.
  Connection* connectIfLiving(const std::string& server);

 private:
  struct Opened {
    std::unique_ptr<Connection> connection;
    ModelSrv::ModelRes result = ModelSrv::ModelRes_Success;
  };

  Opened& open(const std::string& server);
  void reportOwner(const std::string& server, const Connection& connection) const;

  Options options_;
  bool colored_;
  Output output_;
  Messages messages_;
  Status status_ = Status::success;
  std::optional<KeptError> kept_;
  bool reconnects_ = false;
  std::map<std::string, Opened, std::less<>> servers_;
};

/// Why there is no connection to `server`: "no server X (there are: Y, Z)", as
/// `otherServers` has them.
[[nodiscard]] std::string connectionError(const std::string& server, ModelSrv::ModelRes result);

}  // namespace treectl
