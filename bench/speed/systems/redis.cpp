// Redis over a Unix socket: a hash for each row; a key for each name, a sorted set for each group and one of all ids lead
// to it. The creator starts the server, and it ends with the creator. Writes of a transaction are sent in one piece.
#include <hiredis/hiredis.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "peers.h"

namespace bench {
namespace {

constexpr int scan_rows = 1000;         // asked for at once
constexpr int connect_attempts = 1000;  // one every 10 ms
constexpr timespec between_attempts = {0, 10'000'000};

using Reply = std::unique_ptr<redisReply, void (*)(void*)>;

class Redis final : public System {
 public:
  ~Redis() override {
    if (connection_ != nullptr) redisFree(connection_);
    if (server_ <= 0) return;
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
  }

  bool shared() const override { return true; }
  bool locks() const override { return false; }
  bool batches() const override { return true; }
  int slowness() const override { return 20; }

  void create(const Place& place) override {
    start_server(place.folder);
    for (int attempt = 0; !connect(place.folder); ++attempt) {
      require(attempt < connect_attempts, "redis: the server does not answer");
      nanosleep(&between_attempts, nullptr);
    }
  }
  void attach(const Place& place, Access) override { require(connect(place.folder), "redis: no server"); }
  std::int64_t bytes() override {
    const Reply info = ask("INFO memory");
    const char* const used = std::strstr(info->str, "used_memory:");
    require(used != nullptr, "redis: no memory information");
    return std::atoll(used + std::strlen("used_memory:"));
  }

  void begin() override { erased_.clear(); }
  void commit() override {
    erase_all();
    if (in_transaction_) send("EXEC");
    in_transaction_ = false;
    receive_all();
  }
  void insert(const Row& row) override {
    enter_transaction();
    const auto id = static_cast<long long>(row.id);
    send("HSET r:%lld id %lld name %s grp %d price %s", id, id, row.name.text, row.grp,
         digits(row.price).c_str());
    send("SET n:%s %lld NX", row.name.text, id);
    send("ZADD g:%d %lld %lld", row.grp, id, id);
    send("ZADD ids %lld %lld", id, id);
  }
  void set_price(std::int64_t id, double price) override {
    enter_transaction();
    send("HSET r:%lld price %s", static_cast<long long>(id), digits(price).c_str());
  }
  void erase(std::int64_t id) override { erased_.push_back(id); }

  double get_id(std::int64_t id) override {
    return number(ask("HGET r:%lld price", static_cast<long long>(id)).get());
  }
  double get_name(const Name& name) override {
    return get_id(static_cast<std::int64_t>(number(ask("GET n:%s", name.text).get())));
  }
  double get_group(std::int32_t group, int count) override {
    const Reply ids = ask("ZRANGE g:%d 0 %d", group, count - 1);
    return sum_of(*ids, "grp");
  }
  double range(std::int64_t from, std::int64_t count) override {
    double sum = 0;
    for (std::int64_t done = 0; done < count;) {
      const std::int64_t wanted = std::min<std::int64_t>(count - done, scan_rows);
      const Reply ids = ask("ZRANGEBYSCORE ids %lld +inf LIMIT 0 %lld", static_cast<long long>(from),
                            static_cast<long long>(wanted));
      if (ids->elements == 0) break;
      sum += sum_of(*ids, "price");
      from = static_cast<std::int64_t>(number(ids->element[ids->elements - 1])) + 1;
      done += static_cast<std::int64_t>(ids->elements);
    }
    return sum;
  }
  void get_ids(std::span<const std::int64_t> ids, double* prices) override {
    for (const std::int64_t id : ids) send("HGET r:%lld price", static_cast<long long>(id));
    for (std::size_t i = 0; i < ids.size(); ++i) prices[i] = number(receive().get());
  }
  void get_names(std::span<const Name> names, double* prices) override {
    std::int64_t ids[batch_size];
    for (const Name& name : names) send("GET n:%s", name.text);
    for (std::size_t i = 0; i < names.size(); ++i)
      ids[i] = static_cast<std::int64_t>(number(receive().get()));
    get_ids({ids, names.size()}, prices);
  }

 private:
  static std::string socket_of(const std::string& folder) { return folder + "/redis.sock"; }

  // Through setpriv, so that it dies with this process, however that ends.
  void start_server(const std::string& folder) {
    const std::string socket = socket_of(folder);
    const char* const words[] = {"setpriv",      "--pdeathsig",
                                 "KILL",         "redis-server",
                                 "--port",       "0",
                                 "--unixsocket", socket.c_str(),
                                 "--save",       "",
                                 "--appendonly", "no",
                                 "--dir",        folder.c_str(),
                                 "--logfile",    "/dev/null",
                                 "--daemonize",  "no",
                                 nullptr};
    require(posix_spawnp(&server_, words[0], nullptr, nullptr, const_cast<char**>(words), environ) == 0,
            "redis: no server");
  }

  bool connect(const std::string& folder) {
    if (connection_ != nullptr) redisFree(connection_);
    connection_ = redisConnectUnix(socket_of(folder).c_str());
    return connection_ != nullptr && connection_->err == 0;
  }

  static std::string digits(double price) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, price, std::chars_format::fixed).ptr};
  }

  static double number(const redisReply* reply) {
    require(reply->type == REDIS_REPLY_STRING, "redis: not found");
    return std::strtod(reply->str, nullptr);
  }

  template <typename... Values>
  void send(const char* command, Values... values) {
    require(redisAppendCommand(connection_, command, values...) == REDIS_OK, "redis: cannot send");
    ++pending_;
  }

  Reply receive() {
    void* reply = nullptr;
    require(redisGetReply(connection_, &reply) == REDIS_OK && reply != nullptr, "redis: no answer");
    --pending_;
    Reply owned(static_cast<redisReply*>(reply), freeReplyObject);
    require(owned->type != REDIS_REPLY_ERROR, "redis: an error");
    return owned;
  }

  void receive_all() {
    while (pending_ > 0) receive();
  }

  template <typename... Values>
  Reply ask(const char* command, Values... values) {
    send(command, values...);
    while (pending_ > 1) receive();
    return receive();
  }

  void enter_transaction() {
    if (!in_transaction_) send("MULTI");
    in_transaction_ = true;
  }

  // First the names and groups of all rows are asked for, since they lead to what else is to go.
  void erase_all() {
    for (const std::int64_t id : erased_) send("HMGET r:%lld name grp", static_cast<long long>(id));
    std::vector<Reply> rows;
    while (pending_ > 0) rows.push_back(receive());
    for (std::size_t i = 0; i < erased_.size(); ++i) {
      const auto id = static_cast<long long>(erased_[i]);
      require(rows[i]->elements == 2 && rows[i]->element[0]->str != nullptr, "redis: not found");
      enter_transaction();
      send("DEL r:%lld n:%s", id, rows[i]->element[0]->str);
      send("ZREM g:%s %lld", rows[i]->element[1]->str, id);
      send("ZREM ids %lld", id);
    }
  }

  double sum_of(const redisReply& ids, const char* field) {
    for (std::size_t i = 0; i < ids.elements; ++i) send("HGET r:%s %s", ids.element[i]->str, field);
    double sum = 0;
    for (std::size_t i = 0; i < ids.elements; ++i) sum += number(receive().get());
    return sum;
  }

  redisContext* connection_ = nullptr;
  pid_t server_ = 0;
  int pending_ = 0;              // answers not yet received
  bool in_transaction_ = false;  // between MULTI and EXEC
  std::vector<std::int64_t> erased_;
};

}  // namespace

std::unique_ptr<System> make_redis() {
  return std::make_unique<Redis>();
}

}  // namespace bench
