/* A client of paho's library for C that reads, stores and watches values of a device by hand-written
 * JSON, and prints the replies.
 *
 *     client PORT TOPICS SERVER
 */

#include <MQTTClient.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { timeout = 40000, size = 512 };

static MQTTClient client;
static const char *topics;
static const char *server;
static char response[size];
static char updates[size];
static int batches;
static int requests;

static void check(int code, const char *what) {
  if (code != MQTTCLIENT_SUCCESS) {
    fprintf(stderr, "%s: %d\n", what, code);
    exit(1);
  }
}

static void add_text(MQTTProperties *list, enum MQTTPropertyCodes identifier, char *text) {
  MQTTProperty property;
  memset(&property, 0, sizeof property);
  property.identifier = identifier;
  property.value.data.data = text;
  property.value.data.len = (int)strlen(text);
  check(MQTTProperties_add(list, &property), "property");
}

static void subscribe(char *topic) {
  MQTTResponse response5 = MQTTClient_subscribe5(client, topic, 1, NULL, NULL);
  check(response5.reasonCode == 1 ? MQTTCLIENT_SUCCESS : response5.reasonCode, topic);
  MQTTResponse_free(response5);
}

/* Waits for a message of `topic` that contains `part`, and prints it after `title` if that is not
 * null. */
static void await(const char *topic, const char *part, const char *title) {
  for (int found = 0; !found;) {
    char *from = NULL;
    int length = 0;
    MQTTClient_message *message = NULL;
    check(MQTTClient_receive(client, &from, &length, &message, timeout), "receive");
    if (message == NULL) {
      fprintf(stderr, "nothing comes at %s\n", topic);
      exit(1);
    }
    batches += strcmp(from, updates) == 0;
    char text[size] = "";
    if (message->payloadlen < size) {
      memcpy(text, message->payload, (size_t)message->payloadlen);
    }
    found = strcmp(from, topic) == 0 && strstr(text, part) != NULL;
    if (found && title != NULL) {
      printf("%s %s\n", title, text);
    }
    MQTTClient_freeMessage(&message);
    MQTTClient_free(from);
  }
}

static void request(char *verb, const char *fields) {
  char topic[size];
  snprintf(topic, sizeof topic, "%s/req/%s/c", topics, verb);
  char payload[size];
  snprintf(payload, sizeof payload, "{\"server\": \"%s\"%s}", server, fields);
  MQTTClient_message message = MQTTClient_message_initializer;
  message.payload = payload;
  message.payloadlen = (int)strlen(payload);
  message.qos = 1;
  add_text(&message.properties, MQTTPROPERTY_CODE_RESPONSE_TOPIC, response);
  char correlation[size];
  snprintf(correlation, sizeof correlation, "%d", ++requests);
  add_text(&message.properties, MQTTPROPERTY_CODE_CORRELATION_DATA, correlation);
  add_text(&message.properties, MQTTPROPERTY_CODE_CONTENT_TYPE, "application/json");
  MQTTProperty expiry;
  memset(&expiry, 0, sizeof expiry);
  expiry.identifier = MQTTPROPERTY_CODE_MESSAGE_EXPIRY_INTERVAL;
  expiry.value.integer4 = 2;
  check(MQTTProperties_add(&message.properties, &expiry), "expiry");
  MQTTClient_deliveryToken token = 0;
  MQTTResponse sent = MQTTClient_publishMessage5(client, topic, &message, &token);
  check(sent.reasonCode, "publish");
  MQTTResponse_free(sent);
  MQTTProperties_free(&message.properties);
  await(response, "\"result\"", verb);
}

int main(int argc, char **argv) {
  if (argc != 4) {
    return 2;
  }
  topics = argv[2];
  server = argv[3];
  snprintf(response, sizeof response, "%s/rsp/c/one", topics);
  snprintf(updates, sizeof updates, "%s/upd/%s", topics, server);
  char address[size];
  snprintf(address, sizeof address, "tcp://127.0.0.1:%s", argv[1]);

  MQTTClient_createOptions options = MQTTClient_createOptions_initializer;
  options.MQTTVersion = MQTTVERSION_5;
  check(MQTTClient_createWithOptions(&client, address, "paho-c", MQTTCLIENT_PERSISTENCE_NONE, NULL,
                                     &options),
        "create");
  MQTTClient_connectOptions connection = MQTTClient_connectOptions_initializer5;
  connection.cleanstart = 1;
  MQTTResponse connected = MQTTClient_connect5(client, &connection, NULL, NULL);
  check(connected.reasonCode, "connect");
  MQTTResponse_free(connected);

  subscribe(response);
  request("get", ", \"path\": \"/axis/position\"");
  subscribe(updates);
  request("watch", ", \"path\": \"/settings\"");
  request("set", ", \"path\": \"/settings/stroke\", \"value\": 70");
  request("set", ", \"path\": \"/settings/stroke\", \"value\": 700");
  if (batches == 0) {
    await(updates, "", NULL);
  }
  char dashboard[size];
  snprintf(dashboard, sizeof dashboard, "%s/j/%s/settings", topics, server);
  subscribe(dashboard);
  await(dashboard, "\"stroke\":70", "dashboard");

  check(MQTTClient_disconnect5(client, timeout, MQTTREASONCODE_SUCCESS, NULL), "disconnect");
  MQTTClient_destroy(&client);
  return 0;
}
