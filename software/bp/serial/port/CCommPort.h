#pragma once
// CCommPort: one byte stream of the ASCII command protocol: a serial port (CSerialPort),
// the USB serial adapter, or one accepted TCP connection (CEthernetPort). Descriptors
// are non-blocking; waiting is done by the owner's select loop or by the timed
// BufferedReadComplete.
//
// Port identifiers are single bits, so a set of ports fits in one mask:
//   2 "PRTA" "/dev/ttymxc0", 4 "PRTB" "/dev/ttymxc2", 8 "PRTC" "/dev/ttymxc3",
//   16 Ethernet (any TCP connection), 32 "PUSB", 128 the USB serial device "/dev/ttyUSB<n>".
// Device paths are system paths resolved through the runtime root.
//
// Writes never wait: WriteString writes what the descriptor takes now and queues the
// rest, behind anything queued before; the owner's loop selects the port for writing
// while HasQueuedOutput() and calls WriteQueued() when it is writable. The queue holds at
// most kMaxQueuedBytes: a message that does not fit is dropped whole on a serial line
// (WriteString returns false: a slow line or a peer holding XOFF must not lose its port)
// and makes WriteString throw on a TCP connection (a peer that stopped reading is
// closed). Writes on sockets use send(MSG_NOSIGNAL | MSG_DONTWAIT), so a closed TCP peer
// gives an exception, never SIGPIPE, and a socket handed over still blocking cannot stall
// a write; other descriptors (terminals) must be non-blocking already.
// Waits use poll(), so descriptor numbers above 1023 work as well.
//
// Ownership: the port owns its descriptor and closes it when destroyed.
// Thread contract: a port is used by the one thread that runs its handler's loop.
// Errors throw CException with the texts given at each method.

#include <string>

enum EPortId : unsigned char {
    PORT_NONE = 0,
    PORT_A = 2,
    PORT_B = 4,
    PORT_C = 8,
    PORT_ETHERNET = 16,
    PORT_USB = 32,
    PORT_USB_DEVICE = 128,
};

// Serial settings; the numbers are control values ("BDR", "MDE", "FLW").
enum EBaudRate : int {
    BAUD_1200 = 0,
    BAUD_2400 = 1,
    BAUD_9600 = 2,
    BAUD_19200 = 3,
    BAUD_38400 = 4,
    BAUD_57600 = 5,
    BAUD_115200 = 6,
    BAUD_1500000 = 7,
};

enum ESerialMode : int {
    SERIAL_8N1 = 0,
    SERIAL_7E1 = 1,
    SERIAL_7O1 = 2,
};

enum ESerialFlowCtrl : int {
    FLOW_NONE = 0,
    FLOW_SOFTWARE = 1,  // XON/XOFF on input and output, any character restarts output
    FLOW_HARDWARE = 2,  // RTS/CTS
};

class CCommPort {
public:
    static constexpr unsigned int kBufferSize = 1024;
    static constexpr size_t kMaxQueuedBytes = 64 * 1024;

    // "PRTA", "PRTB", "PRTC", "PUSB" for 2, 4, 8, 32 and the USB serial device 128; ""
    // for any other id.
    static std::string GetPortSubCode(unsigned char id);
    // The bit that stands for a port in routing masks and port settings: its own id, but
    // PUSB (32) for the USB serial device (128), which is the projector's USB port.
    static unsigned char GetRoutingBit(unsigned char id) {
        return id == PORT_USB_DEVICE ? static_cast<unsigned char>(PORT_USB) : id;
    }
    // The inverse: "" gives 16 (Ethernet), an unknown name 0.
    static unsigned char GetPortId(const std::string& name);

    // Takes ownership of fd (may be -1 for a port opened later by a subclass).
    CCommPort(unsigned char id, int fd, const std::string& name);
    virtual ~CCommPort();
    CCommPort(const CCommPort&) = delete;
    CCommPort& operator=(const CCommPort&) = delete;

    // One read of up to len bytes: the count, 0 at end of stream, -1 when nothing is
    // waiting. Throws "Failed to read from port %s".
    virtual int ReadString(unsigned char* buffer, unsigned short length);
    // One record ended by terminator, terminator included: its length, or -1 when none
    // completed within timeoutMs (the bytes already read are kept for the next call).
    // Records already held are returned without waiting. timeoutMs bounds the whole call.
    // Throws "Failed read on %s (%s)" and empties the held bytes when the record does not
    // fit: "Output buffer too small." (record longer than outSize, or kBufferSize bytes
    // without terminator and outSize <= kBufferSize), or "Receive buffer full without
    // containing ' <terminator> ' character." (the same with outSize > kBufferSize).
    // Also "Failed read on %s (Connection closed)" at end of stream (so a closed peer
    // cannot look like a time-out and keep its owner polling), "Failed read on %s
    // (<error text>)" when the wait or the read fails, or "(Port not open)".
    virtual int BufferedReadComplete(unsigned char* out, unsigned int outSize, char terminator,
                                     unsigned int timeoutMs);
    // One byte; 0 when nothing was waiting or at end of stream.
    // Throws "Failed to read from port %s".
    virtual unsigned char ReadChar();
    // Writes all bytes now or queues what the port does not take: true when all went out
    // or are queued; length 0 is true at once, a negative length false, and so is a
    // message dropped on a serial line whose queue is full. Throws "Failed write to port
    // %s (write() return 0. %d of %d bytes written)", "Failed to write to port %s", or, on
    // a TCP connection whose queue is full, "Failed to write to port %s (peer not
    // reading)".
    virtual bool WriteString(const unsigned char* data, int length);
    bool HasQueuedOutput() const { return m_queuedSent < m_queued.size(); }
    // Writes queued bytes while the port takes them. Throws as WriteString.
    void WriteQueued();
    // One byte: true when written, false when the port cannot take it now.
    // Throws "Failed to write to port %s".
    virtual bool WriteChar(unsigned char c);
    // Discards pending input (the base has nothing to discard).
    virtual void Flush();

    unsigned char GetPortId() const { return m_portId; }
    int GetFd() const { return m_fd; }
    const std::string& GetName() const { return m_name; }

protected:
    void SetFd(int fd) { m_fd = fd; }

private:
    // One write attempt of the whole remainder: write()'s result, errno set on failure.
    long WriteSome(const unsigned char* data, unsigned long length);
    // Hands out the record ending at m_buffer[index]; see BufferedReadComplete.
    int TakeRecord(unsigned int index, unsigned char* out, unsigned int outSize);

    // Writes from `data` while the port takes it; the count written. Throws on failure.
    size_t WriteNow(const unsigned char* data, size_t length);

    std::string m_queued;
    size_t m_queuedSent = 0;
    unsigned char m_portId;
    int m_fd;
    std::string m_name;
    unsigned char m_buffer[kBufferSize];
    unsigned short m_held = 0;
    // Whether m_fd is a socket, found once per descriptor (SetFd may change it).
    int m_typeCheckedFd = -1;
    bool m_isSocket = false;
};
