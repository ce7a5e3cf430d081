# Homebrew formula. scripts/package writes the address and the sum of a release into it; the zeros
# here belong to no file.
class VeltaMcp < Formula
  desc "Meeting notes as tools of an AI assistant"
  homepage "https://velta.example"
  url "https://velta.example/releases/0.2.0/velta-mcp-0.2.0.tar.gz"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"

  depends_on "cmake" => :build
  depends_on "ninja" => :build
  depends_on "pkgconf" => :build
  depends_on "pcre2"
  depends_on "utf8proc"

  uses_from_macos "curl"

  def install
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja", *std_cmake_args
    system "cmake", "--build", "build", "--target", "velta-mcp"
    system "cmake", "--install", "build"
  end

  test do
    ENV["MEETING_NOTES_HOME"] = testpath/"notes"
    assert_equal "velta-mcp #{version}", shell_output("#{bin}/velta-mcp --version").strip

    request = {
      jsonrpc: "2.0",
      id:      1,
      method:  "initialize",
      params:  {
        protocolVersion: "2025-06-18",
        capabilities:    {},
        clientInfo:      { name: "brew", version: "1" },
      },
    }
    answer = pipe_output("#{bin}/velta-mcp --client brew", "#{JSON.generate(request)}\n", 0)
    assert_equal version.to_s, JSON.parse(answer).dig("result", "serverInfo", "version")

    assert_match "Not connected", shell_output("#{bin}/velta-mcp status", 1)
  end
end
