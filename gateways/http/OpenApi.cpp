// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/OpenApi.h"

namespace zeph::http_door {

namespace {

constexpr std::string_view kVersionMark = "@VERSION@";
constexpr std::string_view kDocument = R"json({
"openapi": "3.1.0",
"info": {
  "title": "Zeph",
  "version": "@VERSION@",
  "summary": "Tells whether addresses, pages and letters imitate a known brand.",
  "license": {"name": "Apache-2.0", "identifier": "Apache-2.0"}
},
"security": [{}, {"token": []}],
"paths": {
  "/v1/check": {
    "post": {
      "operationId": "check",
      "summary": "A verdict on one thing, or on each line of a batch, in order.",
      "parameters": [
        {"name": "explain", "in": "query", "description": "1: with brand, indicators and reasons.",
         "schema": {"type": "string", "enum": ["0", "1"]}},
        {"name": "url", "in": "query", "description": "Address of the page in the body.", "schema": {"type": "string"}},
        {"name": "Content-Location", "in": "header", "description": "The same, where the query doesn't tell.",
         "schema": {"type": "string"}}
      ],
      "requestBody": {
        "required": true,
        "content": {
          "application/json": {"schema": {"$ref": "#/components/schemas/Question"}},
          "application/x-ndjson": {"schema": {"type": "string", "description": "A Question a line."}},
          "text/html": {"schema": {"type": "string"}},
          "application/xhtml+xml": {"schema": {"type": "string"}},
          "message/rfc822": {"schema": {"type": "string"}},
          "multipart/related": {"schema": {"type": "string"}},
          "application/x-mimearchive": {"schema": {"type": "string"}}
        }
      },
      "responses": {
        "200": {
          "description": "The verdict. A batch has a line for each of its lines: an Answer, or a Problem where it can't be read.",
          "content": {
            "application/json": {"schema": {"$ref": "#/components/schemas/Answer"}},
            "application/x-ndjson": {"schema": {"type": "string"}}
          }
        },
        "400": {"$ref": "#/components/responses/Problem"},
        "401": {"$ref": "#/components/responses/Problem"},
        "413": {"$ref": "#/components/responses/Problem"},
        "415": {"$ref": "#/components/responses/Problem"},
        "429": {"$ref": "#/components/responses/Later"},
        "431": {"$ref": "#/components/responses/Problem"},
        "503": {"$ref": "#/components/responses/Later"}
      }
    }
  },
  "/v1/openapi.json": {
    "get": {"operationId": "openapi", "summary": "This description.", "security": [],
      "responses": {"200": {"description": "OpenAPI 3.1.", "content": {"application/json": {}}}}}
  },
  "/metrics": {
    "get": {"operationId": "metrics", "summary": "Counts and states in the Prometheus text format.",
      "responses": {
        "200": {"description": "The metrics.", "content": {"text/plain": {}}},
        "401": {"$ref": "#/components/responses/Problem"}
      }}
  },
  "/healthz": {
    "get": {"operationId": "healthz", "summary": "Whether the process answers.", "security": [],
      "responses": {"200": {"description": "It does.", "content": {"text/plain": {}}}}}
  },
  "/readyz": {
    "get": {"operationId": "readyz", "summary": "Whether it has a package to judge by and isn't closing.", "security": [],
      "responses": {
        "200": {"description": "It is ready.", "content": {"text/plain": {}}},
        "503": {"$ref": "#/components/responses/Later"}
      }}
  }
},
"components": {
  "securitySchemes": {"token": {"type": "http", "scheme": "bearer"}},
  "responses": {
    "Problem": {
      "description": "It isn't taken, and why.",
      "content": {"application/json": {"schema": {"$ref": "#/components/schemas/Problem"}}}
    },
    "Later": {
      "description": "There is no room now.",
      "headers": {"Retry-After": {"description": "Seconds.", "required": true, "schema": {"type": "integer"}}},
      "content": {"application/json": {"schema": {"$ref": "#/components/schemas/Problem"}}}
    }
  },
  "schemas": {
    "Question": {
      "type": "object",
      "description": "An address alone, or one of html, bytes, message and recording.",
      "additionalProperties": false,
      "properties": {
        "url": {"type": "string", "description": "Address to judge, or of the page that stands beside it."},
        "html": {"type": "string", "description": "Markup of a page."},
        "bytes": {"type": "string", "contentEncoding": "base64", "description": "A page or letter as it was sent."},
        "contentType": {"type": "string", "description": "Of bytes, as the transport names it, with its charset."},
        "message": {"type": "string", "description": "A letter, message/rfc822."},
        "recording": {"type": "object", "description": "A page as zeph record writes it."}
      }
    },
    "Problem": {
      "type": "object",
      "required": ["error", "where"],
      "additionalProperties": false,
      "properties": {"error": {"type": "string"}, "where": {"type": ["string", "null"]}}
    },
    "Answer": {
      "type": "object",
      "required": ["input", "result", "classification", "spooficity", "siteName", "verdict", "reason", "url", "urlSource",
                   "heldBack", "sent", "parts"],
      "additionalProperties": false,
      "properties": {
        "where": {"type": "string", "description": "Of a part: where it stands."},
        "input": {"type": "string"},
        "result": {"type": ["integer", "null"]},
        "classification": {"type": ["integer", "null"]},
        "spooficity": {"type": ["number", "null"]},
        "siteName": {"type": ["string", "null"]},
        "brand": {"type": "string"},
        "indicators": {"type": "array", "items": {"type": "object"}},
        "verdict": {"type": "string", "enum": ["trustworthy", "spoofing", "spoofing-confirmed", "script-attack",
                                               "unclassified", "not-judged"]},
        "reason": {"type": ["string", "null"], "description": "Why it wasn't judged."},
        "url": {"type": ["string", "null"]},
        "urlSource": {"type": ["string", "null"]},
        "heldBack": {"type": "boolean"},
        "sent": {"type": "array", "items": {"type": "object"}},
        "reasons": {"type": "array", "items": {"type": "object"}},
        "parts": {"type": "array", "items": {"$ref": "#/components/schemas/Answer"}}
      }
    }
  }
}
}
)json";

}  // namespace

std::string OpenApiDocument(std::string_view version) {
  std::string document(kDocument);
  return document.replace(document.find(kVersionMark), kVersionMark.size(), version);
}

}  // namespace zeph::http_door
