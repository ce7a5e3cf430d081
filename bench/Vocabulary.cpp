#include "Vocabulary.h"

namespace velta::bench {

const std::string_view kTraditionalWords =
    "的 我們 是 這個 就 有 在 不 那 也 要 會 可以 然後 都 很 說 所以 如果 還是 現在 他們 沒有 "
    "覺得 因為 大家 一個 什麼 應該 可能 時候 但是 知道 需要 問題 看 做 其實 這樣 比較 先 再 已經 "
    "一下 那個 今天 怎麼 客戶 時間 開始 直接 後面 之前 東西 出來 上週 下週 真的 最後 一起 產品 "
    "討論 團隊 確認 會議 公司 部分 系統 資料 使用者 功能 計畫 專案 目前 處理 方式 測試 設計 市場 "
    "價格 預算 合約 報告 進度 成本 流程 需求 版本 服務 網站 手機 電話 郵件 文件 表格 數字 圖表 "
    "調整 修改 更新 安排 負責 支援 通知 回覆 提醒 準備 完成 延後 提前 取消 決定 同意 反對 建議 "
    "方案 選擇 風險 機會 目標 策略 重點 優先 順序 品質 效率 速度 安全 隱私 權限 帳號 密碼 登入 "
    "註冊 付款 退款 發票 訂單 出貨 庫存 供應商 廠商 夥伴 代理 經銷 門市 店長 店員 客服 業務 行銷 "
    "廣告 活動 折扣 優惠 會員 點數 推薦 評價 投訴 工程師 設計師 經理 主管 同事 老闆 股東 董事 "
    "律師 會計 財務 人資 面試 招募 訓練 新人 實習 離職 薪水 獎金 台北 高雄 新竹 上海 深圳 香港 "
    "東京 首爾 美國 歐洲 日本 韓國 德國 法國 英國 加拿大 澳洲 印度 越南 泰國 星期一 星期二 星期三 "
    "星期四 星期五 週末 早上 下午 晚上 中午 昨天 明天 後天 月底 年底 季度 半年 去年 明年 春節 "
    "一百 兩千 三萬 五十 六個 七天 八成 九折 十分 百分之 大約 左右 以上 以下 增加 減少 成長 下降 "
    "穩定 波動 資料庫 伺服器 介面 程式 程式碼 錯誤 漏洞 修復 部署 上線 備份 還原 監控 日誌 警報 "
    "延遲 頻寬 流量 快取 索引 模型 演算法 訓練集 標註 準確率 召回率 語音 辨識 轉錄 翻譯 摘要 搜尋 "
    "排序 過濾 分類 標籤 關鍵字 結果 頁面 按鈕 字型 顏色 圖片 影片 動畫 版面 導覽 選單 視窗 螢幕 "
    "鍵盤 滑鼠 耳機 麥克風 錄音 會場 簡報 投影 白板 筆記 電池 充電 車輛 站點 租借 歸還 保養 維修 "
    "零件 輪胎 煞車 車燈 鑰匙 保險 理賠 事故 罰單 停車 加油 里程 旅客 飯店 訂房 導遊 行程 機票 "
    "簽證 護理 行李 接送 景點 餐廳 菜單 早餐 外送 咖啡 茶葉 水果 海鮮 便當 政府 法規 申請 審查 "
    "許可 標案 補助 稅率 海關 進口 出口 運費 貨運 碼頭 航班 鐵路 公車 捷運 道路 橋樑 學校 老師 "
    "學生 課程 教材 考試 成績 研究 論文 實驗 樣本 統計 調查 問卷 訪談 觀察 假設 驗證 結論 發表 "
    "醫院 醫生 病人 藥品 診斷 治療 健康 運動 睡眠 飲食 家庭 孩子 父母 朋友 鄰居 社區 環境 能源 "
    "太陽能 回收";

const std::string_view kSimplifiedWords =
    "的 我们 是 这个 就 有 在 不 那 也 要 会 可以 然后 都 很 说 所以 如果 还是 现在 他们 没有 "
    "觉得 因为 大家 一个 什么 应该 可能 时候 但是 知道 需要 问题 看 做 其实 这样 比较 先 再 已经 "
    "一下 那个 今天 怎么 客户 时间 开始 直接 后面 之前 东西 出来 上周 下周 真的 最后 一起 产品 "
    "讨论 团队 确认 会议 公司 部分 系统 资料 使用者 功能 计画 专案 目前 处理 方式 测试 设计 市场 "
    "价格 预算 合约 报告 进度 成本 流程 需求 版本 服务 网站 手机 电话 邮件 文件 表格 数字 图表 "
    "调整 修改 更新 安排 负责 支援 通知 回覆 提醒 准备 完成 延后 提前 取消 决定 同意 反对 建议 "
    "方案 选择 风险 机会 目标 策略 重点 优先 顺序 品质 效率 速度 安全 隐私 权限 帐号 密码 登入 "
    "注册 付款 退款 发票 订单 出货 库存 供应商 厂商 伙伴 代理 经销 门市 店长 店员 客服 业务 行销 "
    "广告 活动 折扣 优惠 会员 点数 推荐 评价 投诉 工程师 设计师 经理 主管 同事 老板 股东 董事 "
    "律师 会计 财务 人资 面试 招募 训练 新人 实习 离职 薪水 奖金 台北 高雄 新竹 上海 深圳 香港 "
    "东京 首尔 美国 欧洲 日本 韩国 德国 法国 英国 加拿大 澳洲 印度 越南 泰国 星期一 星期二 星期三 "
    "星期四 星期五 周末 早上 下午 晚上 中午 昨天 明天 后天 月底 年底 季度 半年 去年 明年 春节 "
    "一百 两千 三万 五十 六个 七天 八成 九折 十分 百分之 大约 左右 以上 以下 增加 减少 成长 下降 "
    "稳定 波动 资料库 伺服器 介面 程式 程式码 错误 漏洞 修复 部署 上线 备份 还原 监控 日志 警报 "
    "延迟 频宽 流量 快取 索引 模型 演算法 训练集 标注 准确率 召回率 语音 辨识 转录 翻译 摘要 搜寻 "
    "排序 过滤 分类 标签 关键字 结果 页面 按钮 字型 颜色 图片 影片 动画 版面 导览 选单 视窗 萤幕 "
    "键盘 滑鼠 耳机 麦克风 录音 会场 简报 投影 白板 笔记 电池 充电 车辆 站点 租借 归还 保养 维修 "
    "零件 轮胎 煞车 车灯 钥匙 保险 理赔 事故 罚单 停车 加油 里程 旅客 饭店 订房 导游 行程 机票 "
    "签证 护理 行李 接送 景点 餐厅 菜单 早餐 外送 咖啡 茶叶 水果 海鲜 便当 政府 法规 申请 审查 "
    "许可 标案 补助 税率 海关 进口 出口 运费 货运 码头 航班 铁路 公车 捷运 道路 桥梁 学校 老师 "
    "学生 课程 教材 考试 成绩 研究 论文 实验 样本 统计 调查 问卷 访谈 观察 假设 验证 结论 发表 "
    "医院 医生 病人 药品 诊断 治疗 健康 运动 睡眠 饮食 家庭 孩子 父母 朋友 邻居 社区 环境 能源 "
    "太阳能 回收";

const std::string_view kEnglishWords =
    "ok meeting the project email app deadline API update demo team plan data bug release issue "
    "budget server design feature review feedback launch user sprint product test report schedule "
    "customer contract milestone account dashboard deploy pipeline latency cache database query "
    "index backend frontend mobile web service login token password permission admin client agent "
    "model prompt dataset training benchmark accuracy threshold metric baseline experiment "
    "variant rollout rollback migration backup restore monitor alert incident ticket priority "
    "severity owner assignee backlog epic story estimate velocity retro standup kickoff workshop "
    "agenda minutes summary action decision follow-up reminder calendar slot invite attendee "
    "speaker slide template draft version final approve reject pending blocked done progress "
    "status risk scope impact cost price margin revenue discount coupon payment refund billing "
    "invoicing subscription renewal churn retention conversion funnel traffic campaign brand "
    "keyword audience segment persona survey interview insight research hypothesis prototype "
    "wireframe layout font color icon button menu modal form input output validation error "
    "warning timeout retry queue worker thread process memory disk network bandwidth packet "
    "router firewall proxy domain certificate encryption privacy policy compliance audit legal "
    "license vendor supplier partner reseller channel warehouse inventory shipment delivery "
    "tracking return exchange quality inspection sample batch material component assembly "
    "firmware sensor battery charger station vehicle maintenance repair spare tire brake helmet "
    "insurance claim accident report-card parking hotel booking guest checkout breakfast lobby "
    "airport flight ticketing luggage tour guide itinerary visa passport currency office lease "
    "landlord utility electricity water internet cleaning security visitor badge parking-lot "
    "elevator furniture hiring candidate resume offer salary bonus equity onboarding mentor "
    "manager director founder investor board pitch deck valuation runway forecast quarter annual "
    "monthly weekly daily morning afternoon tomorrow yesterday today tonight weekend";

const std::string_view kTraditionalSurnames =
    "陳 林 黃 張 李 王 吳 劉 蔡 楊 許 鄭 謝 郭 洪 曾 邱 廖 賴 徐";
const std::string_view kSimplifiedSurnames =
    "陈 林 黄 张 李 王 吴 刘 蔡 杨 许 郑 谢 郭 洪 曾 邱 廖 赖 徐";
const std::string_view kTraditionalGivenNames =
    "曉梅 海 柏宏 家甄 育誠 雅婷 志明 淑芬 建國 美玲 俊傑 怡君 宗翰 佩珊 冠宇 詩涵 承恩 子晴 文彬 "
    "靜怡";
const std::string_view kSimplifiedGivenNames =
    "晓梅 海 柏宏 家甄 育诚 雅婷 志明 淑芬 建国 美玲 俊杰 怡君 宗翰 佩珊 冠宇 诗涵 承恩 子晴 文彬 "
    "静怡";

const std::string_view kEnglishNames =
    "Ada,Grace Chen,Olivia Park,Daniel Weber,Priya Nair,Tom Becker,Marie Laurent,Kenji Mori,"
    "Sofia Rossi,Lucas Silva,Hannah Lee,Omar Haddad,Nina Petrova,Jack Turner,Emily Clarke,"
    "Ravi Kumar,Elena Popescu,Mark Jensen,Amy Watson,Leo Fischer";

}  // namespace velta::bench
