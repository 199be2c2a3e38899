#pragma once

/// Thrown for every failure of an established stream: the peer has gone, a read or write failed, or
/// a record lies about its lengths. Carries nothing: whoever catches it ends the session.
class BrokenConnection {};
