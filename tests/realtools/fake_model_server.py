#!/usr/bin/env python3
"""A stand-in model server on the loopback interface for the real-tools tests.

Speaks just enough of three streaming APIs for codex, claude and opencode to finish a
turn: the OpenAI Responses API (POST /v1/responses), the Anthropic Messages API
(POST /v1/messages) and OpenAI Chat Completions (POST /v1/chat/completions). Every
answer is fixed text: the rewrite answer when the request carries dictated notes to
rewrite, the task answer otherwise. Each request is appended to the log file as one JSON
line, so a test can check what reached the server.

Prints "PORT <number>" on its first line once it listens, then serves until stdin closes.
"""

import argparse
import json
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

REWRITE_MARKER = "Dictated notes:"


def pieces(text):
    """The answer in a few deltas, as a real stream sends it."""
    words = text.split(" ")
    return [w if i == 0 else " " + w for i, w in enumerate(words)]


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "LoopbackModel/1.0"

    def log_message(self, format, *args):  # noqa: A002 - keep stderr quiet
        pass

    def record(self, body_text):
        entry = {"method": self.command, "path": self.path, "body": body_text,
                 "user_agent": self.headers.get("User-Agent", "")}
        with self.server.log_lock, open(self.server.log_path, "a", encoding="utf-8") as log:
            log.write(json.dumps(entry) + "\n")

    def read_body(self):
        length = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(length).decode("utf-8", "replace") if length else ""

    def send_json(self, status, payload):
        data = json.dumps(payload).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        # Tells opencode's retry logic how long to wait instead of retrying at once.
        if status >= 400:
            self.send_header("retry-after-ms", "600000")
        self.end_headers()
        self.wfile.write(data)

    def start_stream(self):
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-cache")
        self.send_header("Transfer-Encoding", "chunked")
        self.end_headers()

    def chunk(self, text):
        data = text.encode()
        self.wfile.write(b"%x\r\n%s\r\n" % (len(data), data))
        self.wfile.flush()

    def end_stream(self):
        self.wfile.write(b"0\r\n\r\n")
        self.wfile.flush()

    def event(self, name, payload):
        self.chunk(("event: %s\n" % name if name else "") + "data: " + json.dumps(payload) + "\n\n")

    def do_GET(self):
        self.record("")
        if self.path.rstrip("/").endswith("/models"):
            self.send_json(200, {"object": "list", "data": [], "models": []})
        else:
            self.send_json(404, {"error": {"message": "not found", "type": "not_found"}})

    def do_HEAD(self):
        self.record("")
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_POST(self):
        body_text = self.read_body()
        self.record(body_text)
        try:
            body = json.loads(body_text) if body_text else {}
        except json.JSONDecodeError:
            body = {}
        path = self.path.split("?")[0].rstrip("/")
        text = self.server.rewrite_answer if REWRITE_MARKER in body_text else self.server.task_answer
        if path.endswith("/responses"):
            self.openai_responses(body, text)
        elif path.endswith("/messages/count_tokens"):
            self.send_json(200, {"input_tokens": 10})
        elif path.endswith("/messages"):
            self.messages(body, text)
        elif path.endswith("/chat/completions"):
            self.chat_completions(body, text)
        else:
            self.send_json(404, {"error": {"message": "not found", "type": "not_found"}})

    # OpenAI Responses API
    def openai_responses(self, body, text):
        model = body.get("model", "loopback")
        response = {"id": "resp_loopback", "object": "response", "created_at": int(time.time()),
                    "model": model, "status": "in_progress", "output": []}
        message = {"type": "message", "id": "msg_loopback", "role": "assistant", "status": "completed",
                   "content": [{"type": "output_text", "text": text, "annotations": []}]}
        self.start_stream()
        self.event("response.created", {"type": "response.created", "sequence_number": 0, "response": response})
        self.event("response.output_item.added", {
            "type": "response.output_item.added", "sequence_number": 1, "output_index": 0,
            "item": dict(message, status="in_progress", content=[])})
        sequence = 2
        for delta in pieces(text):
            self.event("response.output_text.delta", {
                "type": "response.output_text.delta", "sequence_number": sequence, "item_id": "msg_loopback",
                "output_index": 0, "content_index": 0, "delta": delta})
            sequence += 1
        self.event("response.output_item.done", {
            "type": "response.output_item.done", "sequence_number": sequence, "output_index": 0, "item": message})
        usage = {"input_tokens": 10, "input_tokens_details": {"cached_tokens": 0}, "output_tokens": 10,
                 "output_tokens_details": {"reasoning_tokens": 0}, "total_tokens": 20}
        self.event("response.completed", {
            "type": "response.completed", "sequence_number": sequence + 1,
            "response": dict(response, status="completed", output=[message], usage=usage)})
        self.end_stream()

    # Anthropic Messages API
    def messages(self, body, text):
        model = body.get("model", "claude-loopback")
        usage = {"input_tokens": 10, "output_tokens": 10, "cache_creation_input_tokens": 0,
                 "cache_read_input_tokens": 0}
        if not body.get("stream"):
            self.send_json(200, {"id": "msg_loopback", "type": "message", "role": "assistant", "model": model,
                                 "content": [{"type": "text", "text": text}], "stop_reason": "end_turn",
                                 "stop_sequence": None, "usage": usage})
            return
        self.start_stream()
        self.event("message_start", {"type": "message_start", "message": {
            "id": "msg_loopback", "type": "message", "role": "assistant", "model": model, "content": [],
            "stop_reason": None, "stop_sequence": None, "usage": dict(usage, output_tokens=1)}})
        self.event("content_block_start", {"type": "content_block_start", "index": 0,
                                           "content_block": {"type": "text", "text": ""}})
        for delta in pieces(text):
            self.event("content_block_delta", {"type": "content_block_delta", "index": 0,
                                               "delta": {"type": "text_delta", "text": delta}})
        self.event("content_block_stop", {"type": "content_block_stop", "index": 0})
        self.event("message_delta", {"type": "message_delta",
                                     "delta": {"stop_reason": "end_turn", "stop_sequence": None},
                                     "usage": {"output_tokens": 10}})
        self.event("message_stop", {"type": "message_stop"})
        self.end_stream()

    # OpenAI Chat Completions
    def chat_completions(self, body, text):
        model = body.get("model", "loopback")
        base = {"id": "chatcmpl-loopback", "object": "chat.completion.chunk", "created": int(time.time()),
                "model": model}
        if not body.get("stream"):
            self.send_json(200, {"id": "chatcmpl-loopback", "object": "chat.completion", "created": base["created"],
                                 "model": model, "choices": [{"index": 0, "finish_reason": "stop", "message": {
                                     "role": "assistant", "content": text}}],
                                 "usage": {"prompt_tokens": 10, "completion_tokens": 10, "total_tokens": 20}})
            return
        self.start_stream()
        self.event(None, dict(base, choices=[{"index": 0, "delta": {"role": "assistant", "content": ""},
                                              "finish_reason": None}]))
        for delta in pieces(text):
            self.event(None, dict(base, choices=[{"index": 0, "delta": {"content": delta}, "finish_reason": None}]))
        self.event(None, dict(base, choices=[{"index": 0, "delta": {}, "finish_reason": "stop"}],
                              usage={"prompt_tokens": 10, "completion_tokens": 10, "total_tokens": 20}))
        self.chunk("data: [DONE]\n\n")
        self.end_stream()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--log", required=True, help="file that receives one JSON line per request")
    parser.add_argument("--task-answer", default="The loopback model says hello.")
    parser.add_argument("--rewrite-answer", default="Fix the login bug in auth.py.")
    arguments = parser.parse_args()

    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    server.log_path = arguments.log
    server.log_lock = threading.Lock()
    server.task_answer = arguments.task_answer
    server.rewrite_answer = arguments.rewrite_answer
    threading.Thread(target=server.serve_forever, daemon=True).start()
    print("PORT %d" % server.server_address[1], flush=True)
    # The test owns us: when it goes away, so do we.
    sys.stdin.read()
    server.shutdown()


if __name__ == "__main__":
    main()
